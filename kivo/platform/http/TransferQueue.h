#pragma once

#include <list>
#include <memory>
#include <string>
#include <unordered_map>

#include "kivo/platform/http/HTTPTransfer.h"

namespace kivo::platform {

/// Decides which transfers run: up to six to one host, or up to 24 once the host has answered over
/// a connection that transfers share. When none is running, the first goes alone until it has
/// connected, so that the others can share its connection. Transfers wait here and not inside
/// libcurl, whose waiting list can miss a connection that has become free and leave a transfer
/// waiting until the next time limit.
class TransferQueue {
public:
    using Transfer = std::shared_ptr<HTTPTransfer>;
    using Transfers = std::list<Transfer>;

    /// Whether `transfer` may start now; otherwise it waits.
    bool admit(const Transfer& transfer);

    /// The transfers whose turn has come because the first one to their host has connected.
    Transfers connected();

    /// Notes that a transfer to `host` has ended, and returns those whose turn has come.
    Transfers ended(const std::string& host, bool isMultiplexed);

    /// Removes `transfer` if it is waiting; returns whether it was.
    bool withdraw(const Transfer& transfer);

private:
    static constexpr std::size_t separateLimit = 6;

    struct Host {
        std::size_t running = 0;
        std::size_t limit = separateLimit;
        Transfer first;  // Until it has connected or ended.
        Transfers waiting;
    };

    static void startWaiting(Host& host, Transfers& next);

    std::unordered_map<std::string, Host> hosts_;
};

}  // namespace kivo::platform
