#include "backend/journal/Tally.h"

#include <utility>

#include "backend/service/Endpoints.h"

namespace kivo::backend {

namespace {

std::string groupOf(std::string_view path) {
    if (const auto* endpoint = endpointAt(path)) return std::string(endpoint->name);
    return imageAt(path) ? "images" : "other paths";
}

}  // namespace

void Tally::count(const Entry& entry) {
    const Lock lock(mutex_);
    ++totals_.requests[groupOf(entry.exchange.request.path())];
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
