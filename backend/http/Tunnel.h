#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>

#include <string>

namespace kivo::backend {

/// Leads a proxy's client to "host:port": answers its CONNECT, then carries bytes both ways until
/// both sides have ended. A host that cannot be reached gives 502. `early` is what the client has
/// sent already.
boost::asio::awaitable<void> tunnel(boost::beast::tcp_stream& client,
                                    boost::beast::flat_buffer& early, std::string authority);

}  // namespace kivo::backend
