#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <sys/types.h>

namespace kivo::backend {

/// Whether the program at the other end of a loopback connection belongs to our own user or to
/// root, as the kernel tells. True where the kernel cannot be asked, since it has no /proc.
bool isOwnUser(const boost::asio::ip::tcp::socket& socket);

}  // namespace kivo::backend
