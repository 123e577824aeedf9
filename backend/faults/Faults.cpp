#include "backend/faults/Faults.h"

#include <ranges>
#include <stdexcept>
#include <utility>

#include "backend/faults/BrokenTransport.h"
#include "backend/faults/FaultKinds.h"
#include "backend/service/Endpoints.h"

namespace kivo::backend {

namespace {

constexpr std::size_t faultLimit = 1000;

bool isUsedUp(const Faults::Active& active) {
    return active.fault.times && active.hits >= *active.fault.times;
}

}  // namespace

bool affectsConnections(const Fault& fault) { return !faultKindNamed(fault.kind)->apply; }

bool isHang(const Fault& fault) { return fault.kind == "hang"; }

void Faults::add(Fault fault) {
    const Lock lock(mutex_);
    if (active_.size() >= faultLimit)
        throw std::invalid_argument(
            "there are already 1000 faults; remove some with: kivo-dev fault clear");
    active_.push_back({.fault = std::move(fault)});
}

std::size_t Faults::clear(const std::optional<std::string>& rule) {
    const auto meant = rule ? ruleOf(parseFault(*rule)) : "";
    const Lock lock(mutex_);
    return std::erase_if(
        active_, [&](const Active& active) { return !rule || ruleOf(active.fault) == meant; });
}

std::vector<Faults::Active> Faults::list() const {
    const Lock lock(mutex_);
    return active_;
}

template <typename Fits>
std::optional<Fault> Faults::drawNewest(const Fits& fits) {
    const Lock lock(mutex_);
    std::uniform_real_distribution<> dice(0, 1);
    for (auto& active : std::views::reverse(active_)) {
        if (isUsedUp(active) || !fits(active.fault)) continue;
        if (dice(chance_) >= active.fault.probability) continue;
        ++active.hits;
        return active.fault;
    }
    return std::nullopt;
}

void Faults::reseed(std::uint64_t seed) {
    const Lock lock(mutex_);
    chance_.seed(seed);
}

std::optional<Fault> Faults::draw(const Request& request, std::string_view session) {
    if (wasRedirected(request)) return std::nullopt;
    const auto endpoint = groupAt(request.path());
    return drawNewest([&](const Fault& fault) {
        return !affectsConnections(fault) &&
               (fault.endpoint == "*" || fault.endpoint == endpoint) &&
               (fault.session.empty() || fault.session == session);
    });
}

HandshakeAction Faults::drawHandshakeAction() {
    const auto fault = drawNewest(affectsConnections);
    return fault ? faultKindNamed(fault->kind)->handshake : HandshakeAction::proceed;
}

}  // namespace kivo::backend
