// How a connection waits, and how it ends.

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <array>
#include <memory>

#include "backend/http/Connection.h"

namespace kivo::backend {

namespace asio = boost::asio;
using boost::system::error_code;

void Connection::release() {
    if (hanging_) stream_.socket().cancel();
}

void Connection::hangUp() {
    error_code ignored;
    if (idle_) stream_.socket().close(ignored);
}

asio::awaitable<void> Connection::holdBack(const Reply& reply) {
    if (reply.delay.count() > 0) co_await pause(reply.delay);
    if (reply.conduct == Conduct::hang) co_await untilReleased();
}

/// Ends early, and the connection with it, when the client leaves.
asio::awaitable<void> Connection::pause(std::chrono::milliseconds duration) {
    const auto timer = std::make_shared<asio::steady_timer>(stream_.get_executor(), duration);
    auto& socket = stream_.socket();
    socket.async_wait(asio::ip::tcp::socket::wait_read, [timer](const error_code& interruption) {
        if (!interruption) timer->cancel();
    });
    error_code departure;
    co_await timer->async_wait(asio::redirect_error(asio::use_awaitable, departure));
    error_code ignored;
    departure ? socket.close(ignored) : socket.cancel(ignored);
}

/// Throws away what is not sent yet, and lets the peer know that something broke.
void Connection::reset() {
    error_code ignored;
    stream_.socket().set_option(asio::socket_base::linger(true, 0), ignored);
    stream_.socket().close(ignored);
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

void Connection::limitSilence() { stream_.expires_after(premises_.options.limits.idle); }

}  // namespace kivo::backend
