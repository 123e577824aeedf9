#include "backend/http/Tunnel.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <openssl/evp.h>

#include <string_view>
#include <utility>
#include <vector>

#include "backend/base/HostAndPort.h"

namespace kivo::backend {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

constexpr std::chrono::seconds connectLimit(10);
constexpr std::size_t pieceSize = 16 * 1024;
constexpr std::string_view established = "HTTP/1.1 200 Connection established\r\n\r\n";
constexpr std::string_view unreachable =
    "HTTP/1.1 502 Bad Gateway\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";

std::string base64(const std::string& text) {
    std::string encoded(4 * ((text.size() + 2) / 3) + 1, '\0');
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(encoded.data()),
                    reinterpret_cast<const unsigned char*>(text.data()),
                    static_cast<int>(text.size()));
    encoded.pop_back();
    return encoded;
}

std::string connectRequest(const std::string& authority, const std::string& credentials) {
    auto text = "CONNECT " + authority + " HTTP/1.1\r\nHost: " + authority + "\r\n";
    if (!credentials.empty()) text += "Proxy-Authorization: Basic " + base64(credentials) + "\r\n";
    return text + "\r\n";
}

asio::awaitable<bool> reach(boost::beast::tcp_stream& far, const HostAndPort& target) {
    error_code error;
    tcp::resolver resolver(far.get_executor());
    const auto service = std::to_string(target.port);
    const auto addresses = co_await resolver.async_resolve(
        target.host, service, asio::redirect_error(asio::use_awaitable, error));
    if (error) co_return false;
    far.expires_after(connectLimit);
    co_await far.async_connect(addresses, asio::redirect_error(asio::use_awaitable, error));
    far.expires_never();
    co_return !error;
}

/// Relays one direction. An end of data is passed on; an error closes both directions.
asio::awaitable<void> carry(tcp::socket& from, tcp::socket& to) {
    std::vector<char> piece(pieceSize);
    const auto room = asio::buffer(piece);
    error_code error;
    while (!error) {
        const auto size =
            co_await from.async_read_some(room, asio::redirect_error(asio::use_awaitable, error));
        if (error) break;
        const asio::const_buffer bytes(piece.data(), size);
        co_await asio::async_write(to, bytes, asio::redirect_error(asio::use_awaitable, error));
    }
    error_code ignored;
    to.shutdown(tcp::socket::shutdown_send, ignored);
    if (error == asio::error::eof) co_return;
    from.close(ignored);
    to.close(ignored);
}

}  // namespace

asio::awaitable<void> tunnel(boost::beast::tcp_stream& client, boost::beast::flat_buffer& early,
                             std::string authority, std::optional<UpstreamProxy> upstream) {
    using asio::experimental::awaitable_operators::operator&&;
    const auto target = upstream ? upstream->address : hostAndPort(authority);
    boost::beast::tcp_stream far(client.get_executor());
    bool reached = false;
    if (target) reached = co_await reach(far, *target);
    if (reached && upstream) {
        const auto request = connectRequest(authority, upstream->credentials);
        co_await asio::async_write(far, asio::buffer(request), asio::use_awaitable);
    } else {
        const auto answer = asio::buffer(reached ? established : unreachable);
        co_await asio::async_write(client, answer, asio::use_awaitable);
    }
    if (!reached) co_return;
    client.expires_never();
    co_await asio::async_write(far, early.data(), asio::use_awaitable);
    early.clear();
    auto up = carry(client.socket(), far.socket());
    auto down = carry(far.socket(), client.socket());
    co_await (std::move(up) && std::move(down));
}

}  // namespace kivo::backend
