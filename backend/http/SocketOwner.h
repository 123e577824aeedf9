#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <sys/types.h>

#include <optional>

namespace kivo::backend {

/// Whose a socket of this machine is.
struct SocketOwner {
    uid_t user = 0;
    /// False once the program has closed it, whatever the kernel still has to send.
    bool isOpen = false;
};

/// The owner of the socket between two addresses, as the kernel tells in a few microseconds;
/// std::nullopt if it knows no such socket or cannot be asked.
std::optional<SocketOwner> ownerOf(const boost::asio::ip::tcp::endpoint& local,
                                   const boost::asio::ip::tcp::endpoint& remote);

}  // namespace kivo::backend
