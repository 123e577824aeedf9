#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <cstdint>
#include <vector>

namespace kivo::backend {

/// Listens on 127.0.0.1 and, where the machine has it, on ::1, both on one port; 0 takes a free
/// one. A port that is taken on either address is refused, or "localhost" would reach somebody
/// else. Throws std::system_error.
std::vector<boost::asio::ip::tcp::acceptor> listenOnLoopback(boost::asio::io_context& context,
                                                             std::uint16_t port);

}  // namespace kivo::backend
