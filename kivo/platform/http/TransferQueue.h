#pragma once

#include <list>
#include <memory>
#include <string>
#include <unordered_map>

#include "kivo/platform/http/HTTPTransfer.h"

namespace kivo::platform {

/// Decides which transfers run: six at a time to one host, or 24 once it has answered over a
/// connection that it shares among them. While none runs, the first goes alone until it has
/// connected, for the others to share what it finds. The others wait their turn here and not inside
/// libcurl, whose own waiting list can miss a connection that has become free and leave a transfer
/// waiting until the next time limit.
class TransferQueue {
public:
    using Transfer = std::shared_ptr<HTTPTransfer>;
    using Transfers = std::list<Transfer>;

    /// Whether `transfer` may start now; otherwise it waits.
    bool admit(const Transfer& transfer);

    /// Those whose turn has come since the first transfers to their hosts have connected.
    Transfers connected();

    /// Notes that a transfer to `host` has ended, and returns those whose turn has come.
    Transfers ended(const std::string& host, bool isMultiplexed);

    /// Takes `transfer` out if it waits; returns whether it did.
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
