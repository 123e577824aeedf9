#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "backend/http/Exchange.h"
#include "backend/http/Greeting.h"
#include "backend/tls/Authority.h"

namespace kivo::backend {

/// What becomes of a CONNECT, by which a client uses the server as a proxy.
enum class Passage {
    here,     ///< Answered by this server, as if it were that host.
    through,  ///< Led to that host.
    refused,
};

/// What a client may make the server hold.
struct ServerLimits {
    std::size_t headerBytes = 16 * 1024;
    std::size_t bodyBytes = 1024 * 1024;
    std::size_t connections = 512;
    /// The longest silence within one read or write.
    std::chrono::milliseconds idle = std::chrono::seconds(60);
};

struct ServerOptions {
    /// 0 takes a free one.
    std::uint16_t port = 0;
    /// An empty one serves no TLS.
    Identity identity = {};
    Handler handler;
    /// Asked on the server's thread when a client begins TLS; may be empty.
    std::function<Greeting()> greet = {};
    /// Asked on the server's thread for the "host:port" of a CONNECT; without it, all end here.
    std::function<Passage(const std::string& authority)> passage = {};
    /// Told on the server's thread why a client's TLS handshake failed, or why it never began; may
    /// be empty.
    std::function<void(const std::string& reason)> handshakeFailed = {};
    /// Told of every exchange on the server's thread; may be empty.
    std::function<void(Exchange)> finished = {};
    ServerLimits limits = {};
};

/// An HTTP/1.1 server on loopback, on a thread of its own. One port takes TLS, plain requests, and
/// CONNECT from a client that uses it as a proxy: it then answers as whatever host the client
/// named.
class Server {
public:
    /// Listens when it returns; throws std::system_error when the port cannot be had.
    explicit Server(ServerOptions options);
    ~Server();

    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    std::uint16_t port() const;

    /// Sends every reply that hangs at this moment.
    void release();

    /// Closes the connections that wait for a request: their clients have to connect afresh.
    void hangUp();

    /// Waits, no longer than this, until no client is connected: until then an exchange of theirs
    /// may not have been told of.
    void awaitDeparture(std::chrono::milliseconds limit);

    /// Closes everything and joins the thread. Replies that hang are never sent. The handler must
    /// not call it.
    void stop();

private:
    class Machinery;
    std::unique_ptr<Machinery> machinery_;
    const std::uint16_t port_;
};

}  // namespace kivo::backend
