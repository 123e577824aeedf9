// How a connection waits and closes.

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <algorithm>
#include <array>

#include "backend/http/Connection.h"

namespace kivo::backend {

namespace asio = boost::asio;
using boost::system::error_code;

namespace {

constexpr std::chrono::milliseconds betweenLooks(100);

}  // namespace

void Connection::wakeUp(WakeUp reason) {
    released_ = released_ || reason == WakeUp::release;
    if (awaited_ != reason) return;
    awaited_ = WakeUp::none;
    timer_.cancel();
}

void Connection::closeIfIdle() {
    error_code ignored;
    if (idle_) stream_.socket().close(ignored);
}

/// A release during the delay counts: what would hold the reply afterwards has gone.
asio::awaitable<void> Connection::waitBeforeSending(const Reply& reply) {
    released_ = false;
    if (reply.delay.count() > 0) co_await pause(reply.delay);
    if (reply.delivery == Delivery::hang && !released_)
        co_await waitUntil(Clock::time_point::max(), WakeUp::release);
}

asio::awaitable<void> Connection::pause(std::chrono::milliseconds duration) {
    co_await waitUntil(Clock::now() + duration, WakeUp::none);
}

/// Ends early at that wake-up, or, closing the connection, when the client has left. What the
/// client sends meanwhile, or the end of it, is read later.
asio::awaitable<void> Connection::waitUntil(Clock::time_point end, WakeUp reason) {
    awaited_ = reason;
    auto& socket = stream_.socket();
    error_code ignored;
    while (socket.is_open() && awaited_ == reason && Clock::now() < end) {
        timer_.expires_at(std::min(end, Clock::now() + betweenLooks));
        co_await timer_.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
        if (hasLeft(socket)) socket.close(ignored);
    }
    awaited_ = WakeUp::none;
}

/// Drops unsent data and resets the connection.
void Connection::reset() {
    error_code ignored;
    stream_.socket().set_option(asio::socket_base::linger(true, 0), ignored);
    stream_.socket().close(ignored);
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
