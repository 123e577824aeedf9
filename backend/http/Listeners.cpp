#include "backend/http/Listeners.h"

#include <boost/asio/ip/address_v4.hpp>
#include <boost/asio/ip/address_v6.hpp>

namespace kivo::backend {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

using Acceptors = std::vector<tcp::acceptor>;
constexpr int freePortAttempts = 16;

tcp::acceptor listenOn(asio::io_context& context, const tcp::endpoint& endpoint,
                       error_code& error) {
    tcp::acceptor acceptor(context);
    acceptor.open(endpoint.protocol(), error);
    if (!error) acceptor.set_option(tcp::acceptor::reuse_address(true), error);
    if (!error) acceptor.bind(endpoint, error);
    if (!error) acceptor.listen(asio::socket_base::max_listen_connections, error);
    return acceptor;
}

Acceptors listenOnBoth(asio::io_context& context, std::uint16_t port, error_code& error) {
    Acceptors acceptors;
    acceptors.push_back(listenOn(context, {asio::ip::address_v4::loopback(), port}, error));
    if (error) return acceptors;
    const auto taken = acceptors.front().local_endpoint().port();
    error_code missing;
    auto second = listenOn(context, {asio::ip::address_v6::loopback(), taken}, missing);
    if (!missing) acceptors.push_back(std::move(second));
    if (missing == asio::error::address_in_use) error = missing;
    return acceptors;
}

}  // namespace

Acceptors listenOnLoopback(asio::io_context& context, std::uint16_t port) {
    error_code error;
    for (int attempt = 0; attempt < freePortAttempts; ++attempt) {
        error.clear();
        auto acceptors = listenOnBoth(context, port, error);
        if (!error) return acceptors;
        if (port != 0) break;
    }
    throw std::system_error(error, "cannot listen on 127.0.0.1");
}

}  // namespace kivo::backend
