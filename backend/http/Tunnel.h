#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>

#include <optional>
#include <string>

#include "backend/http/Server.h"

namespace kivo::backend {

/// Connects a proxy's client to "host:port", directly or through another proxy, and relays bytes
/// until both sides have closed. Answers the client's CONNECT, or lets the other proxy answer it;
/// answers 502 if there is no connection. `early` is what the client has already sent.
boost::asio::awaitable<void> tunnel(boost::beast::tcp_stream& client,
                                    boost::beast::flat_buffer& early, std::string authority,
                                    std::optional<UpstreamProxy> upstream);

}  // namespace kivo::backend
