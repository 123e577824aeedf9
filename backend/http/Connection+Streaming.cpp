// How a reply that goes on is sent.

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>

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

asio::awaitable<void> Connection::sendMore(const Reply& reply) {
    error_code error;
    while (!error && stream_.socket().is_open()) {
        const auto text = reply.more();
        if (text.empty()) {
            co_await waitUntil(Clock::now() + longestWait, WakeUp::news);
            continue;
        }
        stream_.expires_after(readerLimit);
        co_await asio::async_write(stream_, asio::buffer(text),
                                   asio::redirect_error(asio::use_awaitable, error));
        stream_.expires_never();
        if (!error) co_await pause(betweenTexts);
    }
}

}  // namespace kivo::backend
