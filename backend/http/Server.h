#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "backend/base/HostAndPort.h"
#include "backend/http/Exchange.h"
#include "backend/http/HandshakeAction.h"
#include "backend/tls/Authority.h"

namespace kivo::backend {

/// What to do with a CONNECT, with which a client uses the server as its proxy.
enum class TunnelPolicy {
    intercept,  ///< Answer as if this server were that host.
    forward,    ///< Connect the client to that host, if it belongs to our own user or to root.
    refuse,
};

/// Another proxy, which connects to the hosts that this one forwards to.
struct UpstreamProxy {
    HostAndPort address;
    /// "user:password" or empty.
    std::string credentials = {};
};

/// Limits on what clients can make the server hold.
struct ServerLimits {
    std::size_t headerBytes = 16 * 1024;
    std::size_t bodyBytes = 1024 * 1024;
    std::size_t connections = 512;
    /// The longest wait within one read or write.
    std::chrono::milliseconds idle = std::chrono::seconds(60);
};

struct ServerOptions {
    /// 0 picks a free port.
    std::uint16_t port = 0;
    /// Empty: no TLS.
    Identity identity = {};
    /// Presented to clients that sent a CONNECT first. Empty: `identity`.
    Identity proxyIdentity = {};
    Handler handler;
    /// Called on the server's thread when a client starts TLS; may be empty.
    std::function<HandshakeAction()> chooseHandshake = {};
    /// Called on the server's thread with the "host:port" of a CONNECT; if empty, all are
    /// intercepted.
    std::function<TunnelPolicy(const std::string& authority)> tunnelPolicy = {};
    /// Called on the server's thread with the reason why a TLS handshake failed or was never
    /// started; may be empty.
    std::function<void(const std::string& reason)> onHandshakeFailed = {};
    /// Called on the server's thread after every exchange; may be empty.
    std::function<void(Exchange)> onExchange = {};
    /// The proxy through which a CONNECT to "host:port" is forwarded; std::nullopt or an empty
    /// function: none.
    std::function<std::optional<UpstreamProxy>(const std::string& authority)> upstreamProxy = {};
    /// Whether clients of other users of this machine are turned away, except root's.
    bool onlyOwnUser = false;
    /// What a client beyond the limit of connections gets before it is disconnected.
    std::string whenFull = {};
    ServerLimits limits = {};
};

/// An HTTP/1.1 server on loopback with its own thread. One port serves TLS, plain requests, and
/// CONNECT from clients that use it as their proxy; it then answers as the host that the client
/// named.
class Server {
public:
    /// Listens when it returns; throws std::system_error if the port cannot be bound.
    explicit Server(ServerOptions options);
    ~Server();

    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::uint16_t port() const;

    /// Sends all replies that are being held.
    void release();

    /// Makes replies that go on ask for more at once. May be called from any thread, often.
    void wake();

    /// Closes the connections that are waiting for a request, so that their clients have to
    /// reconnect.
    void closeIdleConnections();

    /// Waits up to `limit` until no client is connected. Until then `onExchange` may still be
    /// called.
    void awaitDisconnects(std::chrono::milliseconds limit);

    /// Closes all connections and joins the thread. Replies that are being held are never sent.
    /// Must not be called from the handler.
    void stop();

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
    const std::uint16_t port_;
};

}  // namespace kivo::backend
