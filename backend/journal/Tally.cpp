#include "backend/journal/Tally.h"

#include <utility>

#include "backend/journal/Summary.h"
#include "backend/service/Endpoints.h"

namespace kivo::backend {

namespace {

constexpr std::size_t forwardedLimit = 100;

std::string groupOf(std::string_view path) {
    if (const auto* endpoint = endpointAt(path)) return std::string(endpoint->name);
    return imageAt(path) ? "images" : "other paths";
}

}  // namespace

void Tally::count(const Entry& entry) {
    const Lock lock(mutex_);
    if (entry.kind == EntryKind::request) countRequest(entry);
    if (entry.kind == EntryKind::handshake && !isRejection(entry.detail))
        ++totals_.failedHandshakes;
}

bool Tally::countForwarded(const std::string& host) {
    const Lock lock(mutex_);
    const bool full = totals_.forwarded.size() >= forwardedLimit;
    const bool known = totals_.forwarded.contains(host);
    return ++totals_.forwarded[full && !known ? "other hosts" : host] == 1;
}

void Tally::countRequest(const Entry& entry) {
    ++totals_.requests[groupOf(entry.exchange.request.path())];
    if (!entry.exchange.reply.fault.empty()) ++totals_.faultHits;
    if (!entry.violations.empty()) {
        ++totals_.violations;
        ++violationsEver_;
    }
    countRefresh(entry);
}

void Tally::countRefresh(const Entry& entry) {
    const auto* endpoint = endpointAt(entry.exchange.request.path());
    if (!endpoint) return;
    const bool refused = entry.exchange.reply.status == 401;
    if (endpoint->bearer == TokenKind::merchant) {
        if (!refused && std::exchange(userTokenRefused_, false)) ++totals_.refreshes;
        merchantTokenRefused_ = refused;
    } else if (endpoint->bearer == TokenKind::user) {
        userTokenRefused_ = userTokenRefused_ || refused;
    } else if (!refused && std::exchange(merchantTokenRefused_, false)) {
        ++totals_.refreshes;
    }
}

Totals Tally::totals() const {
    const Lock lock(mutex_);
    return totals_;
}

std::uint64_t Tally::violationsEver() const {
    const Lock lock(mutex_);
    return violationsEver_;
}

void Tally::clear() {
    const Lock lock(mutex_);
    totals_ = {};
    userTokenRefused_ = merchantTokenRefused_ = false;
}

}  // namespace kivo::backend
