#pragma once

#include <boost/asio/ip/tcp.hpp>

namespace kivo::backend {

/// Whether the program at the other end of a loopback connection belongs to our own user or to
/// root, as the kernel tells. True where the kernel cannot be asked, since it has no /proc.
bool isOwnUser(const boost::asio::ip::tcp::socket& socket);

/// Whether the program at the other end has closed its socket. One that has only finished sending
/// still waits for its reply; but where the kernel cannot be asked, that counts too.
bool hasLeft(boost::asio::ip::tcp::socket& socket);

}  // namespace kivo::backend
