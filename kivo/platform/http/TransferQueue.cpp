#include "kivo/platform/http/TransferQueue.h"

#include <utility>

namespace kivo::platform {

namespace {

constexpr std::size_t multiplexedLimit = 24;

}  // namespace

bool TransferQueue::admit(const Transfer& transfer) {
    Host& host = hosts_[transfer->host()];
    const bool mayStart = host.running < host.limit && !host.first;
    if (mayStart) {
        if (host.running == 0) host.first = transfer;
        ++host.running;
    } else {
        host.waiting.push_back(transfer);
    }
    return mayStart;
}

TransferQueue::Transfers TransferQueue::connected() {
    Transfers next;
    for (auto& [name, host] : hosts_)
        if (host.first && host.first->isConnected()) startWaiting(host, next);
    return next;
}

TransferQueue::Transfers TransferQueue::ended(const std::string& name, bool isMultiplexed) {
    Transfers next;
    const auto found = hosts_.find(name);
    Host& host = found->second;
    --host.running;
    host.limit = isMultiplexed ? multiplexedLimit : separateLimit;
    startWaiting(host, next);
    if (host.running == 0) hosts_.erase(found);
    return next;
}

void TransferQueue::startWaiting(Host& host, Transfers& next) {
    host.first.reset();
    for (; host.running < host.limit && !host.waiting.empty(); ++host.running)
        next.splice(next.end(), host.waiting, host.waiting.begin());
}

bool TransferQueue::withdraw(const Transfer& transfer) {
    const auto host = hosts_.find(transfer->host());
    return host != hosts_.end() && std::erase(host->second.waiting, transfer) > 0;
}

}  // namespace kivo::platform
