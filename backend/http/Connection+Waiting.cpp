// How a connection waits and closes.

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

void Connection::closeIfIdle() {
    error_code ignored;
    if (idle_) stream_.socket().close(ignored);
}

asio::awaitable<void> Connection::waitBeforeSending(const Reply& reply) {
    if (reply.delay.count() > 0) co_await pause(reply.delay);
    if (reply.delivery == Delivery::hang) co_await waitForRelease();
}

/// Ends early, and closes the connection, if the client leaves.
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

/// Drops unsent data and resets the connection.
void Connection::reset() {
    error_code ignored;
    stream_.socket().set_option(asio::socket_base::linger(true, 0), ignored);
    stream_.socket().close(ignored);
}

/// A waiting client sends nothing, so anything to read means that it is leaving.
asio::awaitable<void> Connection::waitForRelease() {
    error_code interruption;
    hanging_ = true;
    co_await stream_.socket().async_wait(asio::ip::tcp::socket::wait_read,
                                         asio::redirect_error(asio::use_awaitable, interruption));
    hanging_ = false;
    error_code ignored;
    if (!interruption) stream_.socket().close(ignored);
}

/// Keeps reading for a moment before closing: unread bytes would reset the connection and lose the
/// reply on its way.
asio::awaitable<void> Connection::drain() {
    error_code error;
    stream_.socket().shutdown(asio::ip::tcp::socket::shutdown_send, error);
    stream_.expires_after(closeLimit);
    std::array<char, 16 * 1024> scrap{};
    const auto bytes = asio::buffer(scrap);
    while (!error) {
        co_await stream_.async_read_some(bytes, asio::redirect_error(asio::use_awaitable, error));
    }
}

void Connection::restartIdleTimer() { stream_.expires_after(shared_.options.limits.idle); }

}  // namespace kivo::backend
