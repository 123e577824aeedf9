#include "backend/Faults.h"

#include "backend/BrokenTransport.h"
#include "backend/Endpoints.h"
#include "backend/FaultKinds.h"

#include <ranges>
#include <utility>

namespace kivo::backend {
namespace {

bool isUsedUp(const Faults::Active& active) {
    return active.fault.times && active.hits >= *active.fault.times;
}

bool befallsRequests(const Fault& fault) {
    const auto* kind = faultKindNamed(fault.kind);
    return kind && kind->misbehave;
}

std::string_view endpointOf(const Request& request) {
    if (imageAt(request.path())) return "img";
    const auto* endpoint = endpointAt(request.path());
    return endpoint ? endpoint->name : "";
}

}  // namespace

void Faults::add(Fault fault) {
    const std::lock_guard lock(mutex_);
    active_.push_back({.fault = std::move(fault)});
}

std::size_t Faults::clear(const std::optional<std::string>& rule) {
    const auto meant = rule ? ruleOf(parseFault(*rule)) : "";
    const std::lock_guard lock(mutex_);
    return std::erase_if(
        active_, [&](const Active& active) { return !rule || ruleOf(active.fault) == meant; });
}

std::vector<Faults::Active> Faults::list() const {
    const std::lock_guard lock(mutex_);
    return active_;
}

template <typename Fits>
std::optional<Fault> Faults::drawNewest(const Fits& fits) {
    const std::lock_guard lock(mutex_);
    std::uniform_real_distribution<> dice(0, 1);
    for (auto& active : std::views::reverse(active_)) {
        if (isUsedUp(active) || !fits(active.fault)) continue;
        if (dice(chance_) >= active.fault.probability) continue;
        ++active.hits;
        return active.fault;
    }
    return std::nullopt;
}

std::optional<Fault> Faults::draw(const Request& request) {
    if (wasRedirected(request)) return std::nullopt;
    const auto endpoint = endpointOf(request);
    return drawNewest([&](const Fault& fault) {
        return befallsRequests(fault) && (fault.endpoint == "*" || fault.endpoint == endpoint);
    });
}

Greeting Faults::drawGreeting() {
    const auto fault = drawNewest([](const Fault& each) { return !befallsRequests(each); });
    return fault ? faultKindNamed(fault->kind)->greeting : Greeting::proper;
}

}  // namespace kivo::backend
