#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>

#include <string>

namespace kivo::backend {

/// Connects a proxy's client to "host:port": answers its CONNECT, then relays bytes until both
/// sides have closed. Answers 502 if the host cannot be reached. `early` is what the client has
/// already sent.
boost::asio::awaitable<void> tunnel(boost::beast::tcp_stream& client,
                                    boost::beast::flat_buffer& early, std::string authority);

}  // namespace kivo::backend
