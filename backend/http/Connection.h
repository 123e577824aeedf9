#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>

#include <chrono>
#include <cstdint>

#include "backend/http/Peer.h"
#include "backend/http/Server.h"

namespace kivo::backend {

/// What all connections of one server share.
struct ServerContext {
    ServerOptions options;
    boost::asio::ssl::context tls{boost::asio::ssl::context::tls_server};
    boost::asio::ssl::context proxyTls{boost::asio::ssl::context::tls_server};
    boost::asio::ssl::context untrusted{boost::asio::ssl::context::tls_server};
};

/// One client's connection, from first byte to last. Used only on the server's thread.
class Connection {
public:
    Connection(boost::asio::ip::tcp::socket socket, ServerContext& shared, std::uint64_t number);

    /// Returns when the connection has closed; throws if the peer or the network broke it.
    boost::asio::awaitable<void> serve();

    /// What may end a wait early.
    enum class WakeUp {
        none,
        release,  ///< Sends the reply if it is being held.
        news,     ///< Asks a reply that goes on for more.
    };
    void wakeUp(WakeUp reason);

    /// Closes the connection if it is waiting for a request.
    void closeIfIdle();

private:
    enum class Next { request, tunnel, close };
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds closeLimit{1};

    boost::asio::awaitable<Next> serveLayer();
    boost::asio::awaitable<Next> startTls();
    boost::asio::awaitable<Next> serveTls(boost::asio::ssl::context& context);
    boost::asio::awaitable<Next> refuseTls();
    template <typename Stream>
    boost::asio::awaitable<Next> serveRequests(Stream& stream);
    template <typename Stream>
    boost::asio::awaitable<Next> serveRequest(Stream& stream);
    template <typename Stream>
    boost::asio::awaitable<Next> answer(Stream& stream, Request request, bool keepAlive);
    template <typename Stream>
    boost::asio::awaitable<bool> deliver(Stream& stream, Exchange& exchange, bool keepAlive);
    template <typename Stream>
    boost::asio::awaitable<Next> refuse(Stream& stream, Request request, int status);
    boost::asio::ssl::context& trustedContext();
    TunnelPolicy tunnelPolicy(const std::string& authority);
    std::optional<UpstreamProxy> upstreamProxy(const std::string& authority);
    boost::asio::awaitable<Next> openTunnel(std::string authority);
    void reportFailedHandshake(const boost::system::error_code& error) const;
    template <typename Stream>
    boost::asio::awaitable<bool> send(Stream& stream, std::string_view text, const Reply& reply);
    template <typename Stream>
    boost::asio::awaitable<bool> repeatBody(Stream& stream, const Reply& reply);
    boost::asio::awaitable<void> sendMore(const Reply& reply);
    boost::asio::awaitable<void> waitBeforeSending(const Reply& reply);
    boost::asio::awaitable<void> pause(std::chrono::milliseconds duration);
    void reset();
    boost::asio::awaitable<void> waitUntil(Clock::time_point end, WakeUp reason);
    boost::asio::awaitable<void> drain();
    void restartIdleTimer();

    boost::beast::tcp_stream stream_;
    boost::beast::flat_buffer buffer_;  // Bounded, since a chunk header may never end.
    ServerContext& shared_;
    const std::uint64_t number_;
    std::string authority_;
    boost::asio::steady_timer timer_;
    WakeUp awaited_ = WakeUp::none;
    bool released_ = false;
    bool tls_ = false;
    bool idle_ = false;
};

}  // namespace kivo::backend
