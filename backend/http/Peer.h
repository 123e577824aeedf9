#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <sys/types.h>

#include <chrono>

namespace kivo::backend {

/// Whether the program at the other end of a loopback connection belongs to our own user or to
/// root, as the kernel tells. True where the kernel cannot be asked, since it has no /proc.
bool isOwnUser(const boost::asio::ip::tcp::socket& socket);

/// Notices that the program at the other end has closed its socket. One that has only finished
/// sending still waits for its reply.
class Departure {
public:
    /// Cheap enough to be asked often. Where the kernel has no /proc, the end of what the other end
    /// sends counts as a departure.
    bool isNoticed(boost::asio::ip::tcp::socket& socket);

private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point nextLook_;
    Clock::duration betweenLooks_ = std::chrono::milliseconds(50);
};

}  // namespace kivo::backend
