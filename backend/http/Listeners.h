#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <cstdint>
#include <vector>

namespace kivo::backend {

/// Listens on 127.0.0.1 and, if the machine has it, on ::1, on the same port; 0 picks a free one.
/// The port must be free on both, or "localhost" might reach another program. Throws
/// std::system_error.
std::vector<boost::asio::ip::tcp::acceptor> listenOnLoopback(boost::asio::io_context& context,
                                                             std::uint16_t port);

}  // namespace kivo::backend
