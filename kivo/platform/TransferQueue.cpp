#include "kivo/platform/TransferQueue.h"

#include <utility>

namespace kivo::platform {

namespace {

constexpr std::size_t multiplexedLimit = 24;

}  // namespace

bool TransferQueue::admit(const Transfer& transfer) {
    Host& host = hosts_[transfer->host()];
    const bool mayStart = host.running < host.limit;
    if (mayStart) {
        ++host.running;
    } else {
        host.waiting.push_back(transfer);
    }
    return mayStart;
}

std::vector<TransferQueue::Transfer> TransferQueue::ended(const std::string& name,
                                                          bool isMultiplexed) {
    std::vector<Transfer> next;
    const auto found = hosts_.find(name);
    Host& host = found->second;
    --host.running;
    host.limit = isMultiplexed ? multiplexedLimit : separateLimit;
    for (; host.running < host.limit && !host.waiting.empty(); ++host.running) {
        next.push_back(std::move(host.waiting.front()));
        host.waiting.pop_front();
    }
    if (host.running == 0) hosts_.erase(found);
    return next;
}

bool TransferQueue::withdraw(const Transfer& transfer) {
    const auto host = hosts_.find(transfer->host());
    return host != hosts_.end() && std::erase(host->second.waiting, transfer) > 0;
}

}  // namespace kivo::platform
