#pragma once

#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "kivo/platform/HTTPTransfer.h"

namespace kivo::platform {

/// Decides which transfers run: six at a time to one host, or 24 once it has answered over a
/// connection that it shares among them. The others wait their turn here and not inside libcurl,
/// whose own waiting list can miss a connection that has become free and leave a transfer waiting
/// until the next time limit.
class TransferQueue {
public:
    using Transfer = std::shared_ptr<HTTPTransfer>;

    /// Whether `transfer` may start now; otherwise it waits.
    bool admit(const Transfer& transfer);

    /// Notes that a transfer to `host` has ended, and returns those whose turn has come.
    std::vector<Transfer> ended(const std::string& host, bool isMultiplexed);

    /// Takes `transfer` out if it waits; returns whether it did.
    bool withdraw(const Transfer& transfer);

private:
    static constexpr std::size_t separateLimit = 6;

    struct Host {
        std::size_t running = 0;
        std::size_t limit = separateLimit;
        std::deque<Transfer> waiting;
    };

    std::unordered_map<std::string, Host> hosts_;
};

}  // namespace kivo::platform
