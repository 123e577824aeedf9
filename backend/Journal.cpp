#include "backend/Journal.h"

#include <utility>

namespace kivo::backend {
namespace {

constexpr std::size_t keptOfABody = 64 * 1024;

void cut(std::string& body) {
    if (body.size() <= keptOfABody) return;
    const auto whole = body.size();
    body.resize(keptOfABody);
    body.shrink_to_fit();
    body += "… (" + std::to_string(whole) + " bytes in all)";
}

}  // namespace

Journal::Journal(std::size_t capacity) : capacity_(capacity) {}

void Journal::observe(Observer observer) {
    const std::lock_guard lock(mutex_);
    observers_.push_back(std::move(observer));
}

void Journal::record(Exchange exchange) {
    cut(exchange.request.body);
    cut(exchange.reply.body);
    std::unique_lock lock(mutex_);
    exchanges_.push_back(exchange);
    if (exchanges_.size() > capacity_) exchanges_.pop_front();
    const auto observers = observers_;
    lock.unlock();
    for (const auto& observer : observers) observer(exchange);
}

std::vector<Exchange> Journal::recent() const {
    const std::lock_guard lock(mutex_);
    return {exchanges_.begin(), exchanges_.end()};
}

}  // namespace kivo::backend
