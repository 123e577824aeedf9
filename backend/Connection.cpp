#include "backend/Connection.h"

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/detect_ssl.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>

#include <array>
#include <utility>

namespace kivo::backend {
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using boost::system::error_code;

namespace {

using Parser = http::request_parser<http::string_body>;
constexpr std::chrono::seconds handshakeLimit(10);
constexpr std::chrono::seconds partingLimit(1);

Request requestFrom(Parser& parser) {
    auto& message = parser.get();
    Request request{.method = message.method_string(), .target = message.target()};
    for (const auto& field : message) {
        request.headers.push_back({.name = field.name_string(), .value = field.value()});
    }
    request.body = std::move(message.body());
    request.arrival = std::chrono::system_clock::now();
    return request;
}

bool isProtocolError(const error_code& error) {
    return error.category() == http::make_error_code(http::error::bad_method).category() &&
           error != http::error::end_of_stream && error != http::error::partial_message;
}

int statusFor(const error_code& error) {
    if (error == http::error::body_limit) return 413;
    if (error == http::error::header_limit || error == http::error::buffer_overflow) return 431;
    return 400;
}

Reply replyOf(const Handler& handler, const Request& request) {
    try {
        return handler(request);
    } catch (const std::exception& error) {
        return {.status = 500, .body = error.what()};
    }
}

bool endsConnection(const Reply& reply) {
    return reply.conduct == Conduct::cutBody || reply.conduct == Conduct::raw;
}

}  // namespace

Connection::Connection(asio::ip::tcp::socket socket, Premises& premises, std::uint64_t number)
    : stream_(std::move(socket)), premises_(premises), number_(number) {}

void Connection::release() {
    if (hanging_) stream_.socket().cancel();
}

asio::awaitable<void> Connection::serve() {
    auto next = co_await serveLayer();
    if (next == Next::tunnel) next = co_await serveLayer();
    co_await drain();
}

/// TLS or plain requests: the first byte tells. Ends at a CONNECT, after which the client starts
/// afresh.
asio::awaitable<Connection::Next> Connection::serveLayer() {
    limitSilence();
    const bool tls = co_await beast::async_detect_ssl(stream_, buffer_, asio::use_awaitable);
    if (tls) co_return co_await serveTls();
    co_return co_await serveRequests(stream_);
}

asio::awaitable<Connection::Next> Connection::serveTls() {
    asio::ssl::stream<beast::tcp_stream&> secured(stream_, premises_.tls);
    stream_.expires_after(handshakeLimit);
    const auto used = co_await secured.async_handshake(asio::ssl::stream_base::server,
                                                       buffer_.data(), asio::use_awaitable);
    buffer_.consume(used);
    tls_ = true;
    const auto next = co_await serveRequests(secured);
    stream_.expires_after(partingLimit);
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
    Parser parser;
    parser.header_limit(static_cast<std::uint32_t>(premises_.limits.headerBytes));
    parser.body_limit(premises_.limits.bodyBytes);
    limitSilence();
    error_code error;
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
    exchange.reply = replyOf(premises_.handler, exchange.request);
    keepAlive = keepAlive && !endsConnection(exchange.reply);
    exchange.delivered = co_await deliver(stream, exchange, keepAlive);
    exchange.duration = std::chrono::steady_clock::now() - start;
    if (premises_.finished) premises_.finished(exchange);
    co_return exchange.delivered&& keepAlive ? Next::request : Next::close;
}

/// Whether the reply went out as it was meant to.
template <typename Stream>
asio::awaitable<bool> Connection::deliver(Stream& stream, Exchange& exchange, bool keepAlive) {
    error_code error;
    co_await holdBack(exchange.reply);
    if (exchange.reply.conduct == Conduct::closeBeforeReply) stream_.socket().close(error);
    if (!stream_.socket().is_open()) co_return false;
    const std::string text = wireText(exchange.reply, exchange.request, keepAlive);
    const auto bytes = asio::buffer(text);
    limitSilence();
    co_await asio::async_write(stream, bytes, asio::redirect_error(asio::use_awaitable, error));
    co_return !error;
}

template <typename Stream>
asio::awaitable<Connection::Next> Connection::refuse(Stream& stream, Request request, int status) {
    Exchange exchange{.request = std::move(request)};
    exchange.reply.status = status;
    exchange.delivered = co_await deliver(stream, exchange, false);
    if (premises_.finished) premises_.finished(exchange);
    co_return Next::close;
}

asio::awaitable<Connection::Next> Connection::openTunnel(std::string authority) {
    static constexpr std::string_view established = "HTTP/1.1 200 Connection established\r\n\r\n";
    authority_ = std::move(authority);
    const auto bytes = asio::buffer(established);
    co_await asio::async_write(stream_, bytes, asio::use_awaitable);
    co_return Next::tunnel;
}

asio::awaitable<void> Connection::holdBack(const Reply& reply) {
    if (reply.delay.count() > 0) {
        asio::steady_timer timer(stream_.get_executor(), reply.delay);
        co_await timer.async_wait(asio::use_awaitable);
    }
    if (reply.conduct == Conduct::hang) co_await untilReleased();
}

/// A client has nothing to say while it waits: when there is something to read, it is leaving.
asio::awaitable<void> Connection::untilReleased() {
    error_code interruption;
    hanging_ = true;
    co_await stream_.socket().async_wait(asio::ip::tcp::socket::wait_read,
                                         asio::redirect_error(asio::use_awaitable, interruption));
    hanging_ = false;
    error_code ignored;
    if (!interruption) stream_.socket().close(ignored);
}

/// Reads on for a moment before closing: bytes that nobody read would destroy the answer on its way
/// to the client.
asio::awaitable<void> Connection::drain() {
    error_code error;
    stream_.socket().shutdown(asio::ip::tcp::socket::shutdown_send, error);
    stream_.expires_after(partingLimit);
    std::array<char, 16 * 1024> scrap{};
    const auto bytes = asio::buffer(scrap);
    while (!error) {
        co_await stream_.async_read_some(bytes, asio::redirect_error(asio::use_awaitable, error));
    }
}

void Connection::limitSilence() { stream_.expires_after(premises_.limits.idle); }

}  // namespace kivo::backend
