#include "backend/http/Connection.h"

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/detect_ssl.hpp>
#include <boost/beast/http/read.hpp>

#include <utility>

#include "backend/http/Peer.h"
#include "backend/http/RequestParser.h"
#include "backend/http/Tunnel.h"

namespace kivo::backend {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using boost::system::error_code;

namespace {

constexpr std::chrono::seconds handshakeLimit(10);
constexpr std::string_view goOn = "HTTP/1.1 100 Continue\r\n\r\n";
constexpr std::size_t longestPiece = 64 * 1024;

Reply replyOf(const Handler& handler, const Request& request) {
    try {
        return handler(request);
    } catch (const std::exception& error) {
        return {.status = 500, .body = error.what()};
    }
}

bool endsConnection(const Reply& reply) {
    return reply.delivery == Delivery::cutBody || reply.delivery == Delivery::raw ||
           reply.repetitions == Reply::endless || reply.more;
}

bool isOwnAddress(const asio::ip::tcp::socket& socket, const HostAndPort& address) {
    return isLoopback(address.host) && address.port == socket.local_endpoint().port();
}

}  // namespace

Connection::Connection(asio::ip::tcp::socket socket, ServerContext& shared, std::uint64_t number)
    : stream_(std::move(socket)),
      buffer_(shared.options.limits.headerBytes + longestPiece),
      shared_(shared),
      number_(number),
      timer_(stream_.get_executor()) {}

asio::awaitable<void> Connection::serve() {
    auto next = co_await serveLayer();
    if (next == Next::tunnel) next = co_await serveLayer();
    co_await drain();
}

/// Serves TLS or plain requests, which the first byte tells apart. Returns at a CONNECT, after
/// which the client may start TLS.
asio::awaitable<Connection::Next> Connection::serveLayer() {
    restartIdleTimer();
    const bool tls = co_await beast::async_detect_ssl(stream_, buffer_, asio::use_awaitable);
    if (tls) co_return co_await startTls();
    co_return co_await serveRequests(stream_);
}

asio::awaitable<Connection::Next> Connection::startTls() {
    const auto action = shared_.options.chooseHandshake ? shared_.options.chooseHandshake()
                                                        : HandshakeAction::proceed;
    if (action == HandshakeAction::refuse) co_return co_await refuseTls();
    const bool untrusted = action == HandshakeAction::presentUntrusted;
    co_return co_await serveTls(untrusted ? shared_.untrusted : trustedContext());
}

asio::ssl::context& Connection::trustedContext() {
    return authority_.empty() ? shared_.tls : shared_.proxyTls;
}

asio::awaitable<Connection::Next> Connection::refuseTls() {
    static constexpr std::string_view handshakeFailure("\x15\x03\x03\0\x02\x02\x28", 7);
    const auto bytes = asio::buffer(handshakeFailure);
    co_await asio::async_write(stream_, bytes, asio::use_awaitable);
    co_return Next::close;
}

asio::awaitable<Connection::Next> Connection::serveTls(asio::ssl::context& context) {
    asio::ssl::stream<beast::tcp_stream&> secured(stream_, context);
    stream_.expires_after(handshakeLimit);
    error_code error;
    const auto used =
        co_await secured.async_handshake(asio::ssl::stream_base::server, buffer_.data(),
                                         asio::redirect_error(asio::use_awaitable, error));
    if (error) reportFailedHandshake(error);
    if (error) co_return Next::close;
    buffer_.consume(used);
    tls_ = true;
    const auto next = co_await serveRequests(secured);
    stream_.expires_after(closeLimit);
    error_code ignored;
    co_await secured.async_shutdown(asio::redirect_error(asio::use_awaitable, ignored));
    co_return next;
}

template <typename Stream>
asio::awaitable<Connection::Next> Connection::serveRequests(Stream& stream) {
    auto next = Next::request;
    while (next == Next::request) next = co_await serveRequest(stream);
    co_return next;
}

template <typename Stream>
asio::awaitable<Connection::Next> Connection::serveRequest(Stream& stream) {
    RequestParser parser(shared_.options.limits);
    restartIdleTimer();
    error_code error;
    idle_ = true;
    co_await http::async_read_header(stream, buffer_, parser,
                                     asio::redirect_error(asio::use_awaitable, error));
    idle_ = false;
    if (!error && expectsContinue(parser))
        co_await asio::async_write(stream, asio::buffer(goOn),
                                   asio::redirect_error(asio::use_awaitable, error));
    if (!error)
        co_await http::async_read(stream, buffer_, parser,
                                  asio::redirect_error(asio::use_awaitable, error));
    if (error && !isProtocolError(error)) co_return Next::close;
    Request request = requestFrom(parser);
    if (error) co_return co_await refuse(stream, std::move(request), statusFor(error));
    const bool firstOfAll = !tls_ && authority_.empty();
    if (firstOfAll && request.method == "CONNECT") co_return co_await openTunnel(request.target);
    const bool keepAlive = parser.keep_alive();
    co_return co_await answer(stream, std::move(request), keepAlive);
}

template <typename Stream>
asio::awaitable<Connection::Next> Connection::answer(Stream& stream, Request request,
                                                     bool keepAlive) {
    request.authority = authority_.empty() ? request.header("Host") : authority_;
    request.connection = number_;
    Exchange exchange{.request = std::move(request)};
    const auto start = std::chrono::steady_clock::now();
    exchange.reply = replyOf(shared_.options.handler, exchange.request);
    keepAlive = keepAlive && !endsConnection(exchange.reply);
    exchange.delivered = co_await deliver(stream, exchange, keepAlive);
    const bool streams = exchange.delivered && exchange.reply.more && !tls_;
    if (streams && hasBody(exchange.reply, exchange.request)) co_await sendMore(exchange.reply);
    exchange.duration = std::chrono::steady_clock::now() - start;
    const bool goesOn = exchange.delivered && keepAlive;
    if (shared_.options.onExchange) shared_.options.onExchange(std::move(exchange));
    co_return goesOn ? Next::request : Next::close;
}

/// Whether the whole reply was sent.
template <typename Stream>
asio::awaitable<bool> Connection::deliver(Stream& stream, Exchange& exchange, bool keepAlive) {
    const Reply& reply = exchange.reply;
    co_await waitBeforeSending(reply);
    if (reply.delivery == Delivery::resetBeforeReply) reset();
    error_code ignored;
    if (reply.delivery == Delivery::closeBeforeReply) stream_.socket().close(ignored);
    if (!stream_.socket().is_open()) co_return false;
    const std::string text = wireText(reply, exchange.request, keepAlive);
    bool sent = co_await send(stream, text, reply);
    if (sent && hasBody(reply, exchange.request)) sent = co_await repeatBody(stream, reply);
    if (isReset(reply.delivery)) reset();
    co_return sent && !isReset(reply.delivery);
}

template <typename Stream>
asio::awaitable<bool> Connection::repeatBody(Stream& stream, const Reply& reply) {
    bool sent = true;
    for (std::uint64_t count = 1; sent && count < reply.repetitions; ++count)
        sent = co_await send(stream, reply.body, reply);
    co_return sent&& co_await send(stream, reply.closing, reply);
}

template <typename Stream>
asio::awaitable<bool> Connection::send(Stream& stream, std::string_view text, const Reply& reply) {
    const bool dripping = reply.drip.count() > 0;
    error_code error;
    while (!error && !text.empty()) {
        if (dripping) co_await pause(reply.drip);
        const auto piece = asio::buffer(text.substr(0, dripping ? 1 : text.npos));
        restartIdleTimer();
        const auto count = co_await asio::async_write(
            stream, piece, asio::redirect_error(asio::use_awaitable, error));
        text.remove_prefix(count);
    }
    co_return !error;
}

template <typename Stream>
asio::awaitable<Connection::Next> Connection::refuse(Stream& stream, Request request, int status) {
    Exchange exchange{.request = std::move(request)};
    exchange.reply.status = status;
    exchange.delivered = co_await deliver(stream, exchange, false);
    if (shared_.options.onExchange) shared_.options.onExchange(std::move(exchange));
    co_return Next::close;
}

void Connection::reportFailedHandshake(const error_code& error) const {
    if (shared_.options.onHandshakeFailed) shared_.options.onHandshakeFailed(error.message());
}

/// Other users of this machine would otherwise reach other hosts in our user's name.
TunnelPolicy Connection::tunnelPolicy(const std::string& authority) {
    const auto& choose = shared_.options.tunnelPolicy;
    const auto target = hostAndPort(authority);
    const bool isSelf = target && isOwnAddress(stream_.socket(), *target);
    const auto policy = choose && !isSelf ? choose(authority) : TunnelPolicy::intercept;
    const bool isStranger = policy == TunnelPolicy::forward && !isOwnUser(stream_.socket());
    return isStranger ? TunnelPolicy::refuse : policy;
}

/// The user's environment may name this very server, which would connect to itself for ever.
std::optional<UpstreamProxy> Connection::upstreamProxy(const std::string& authority) {
    const auto& choose = shared_.options.upstreamProxy;
    auto proxy = choose ? choose(authority) : std::nullopt;
    const bool isSelf = proxy && isOwnAddress(stream_.socket(), proxy->address);
    return isSelf ? std::nullopt : proxy;
}

asio::awaitable<Connection::Next> Connection::openTunnel(std::string authority) {
    static constexpr std::string_view established = "HTTP/1.1 200 Connection established\r\n\r\n";
    static constexpr std::string_view forbidden =
        "HTTP/1.1 403 Forbidden\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
    const auto policy = tunnelPolicy(authority);
    if (policy == TunnelPolicy::forward) {
        auto upstream = upstreamProxy(authority);
        co_await tunnel(stream_, buffer_, std::move(authority), std::move(upstream));
        co_return Next::close;
    }
    authority_ = std::move(authority);
    const bool here = policy == TunnelPolicy::intercept;
    const auto bytes = asio::buffer(here ? established : forbidden);
    co_await asio::async_write(stream_, bytes, asio::use_awaitable);
    co_return here ? Next::tunnel : Next::close;
}

}  // namespace kivo::backend
