// How a reply that goes on is sent.

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>

#include <utility>

#include "backend/http/Connection.h"

namespace kivo::backend {

namespace asio = boost::asio;
using boost::system::error_code;

namespace {

/// What happens meanwhile leaves together.
constexpr std::chrono::milliseconds betweenTexts(50);
constexpr std::chrono::milliseconds longestWait(500);
/// A reader that stalls for longer is disconnected; until then one text is held for it.
constexpr std::chrono::seconds readerLimit(10);

}  // namespace

void Connection::wake() {
    if (const auto timer = std::exchange(waitingForMore_, nullptr)) timer->cancel();
}

asio::awaitable<void> Connection::sendMore(const Reply& reply) {
    error_code error;
    while (!error && stream_.socket().is_open()) {
        const auto text = reply.more();
        if (text.empty()) {
            co_await waitForMore();
            continue;
        }
        stream_.expires_after(readerLimit);
        co_await asio::async_write(stream_, asio::buffer(text),
                                   asio::redirect_error(asio::use_awaitable, error));
        stream_.expires_never();
        if (!error) co_await pause(betweenTexts);
    }
}

/// Ends early at wake(); closes the connection if the client sends anything or leaves.
asio::awaitable<void> Connection::waitForMore() {
    const auto timer = std::make_shared<asio::steady_timer>(stream_.get_executor(), longestWait);
    waitingForMore_ = timer;
    auto& socket = stream_.socket();
    socket.async_wait(asio::ip::tcp::socket::wait_read, [timer](const error_code& interruption) {
        if (!interruption) timer->cancel();
    });
    error_code early;
    co_await timer->async_wait(asio::redirect_error(asio::use_awaitable, early));
    const bool woken = !std::exchange(waitingForMore_, nullptr);
    error_code ignored;
    early && !woken ? socket.close(ignored) : socket.cancel(ignored);
}

}  // namespace kivo::backend
