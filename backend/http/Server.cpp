#include "backend/http/Server.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <openssl/ssl.h>
#include <pthread.h>

#include <functional>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "backend/http/Connection.h"
#include "backend/http/Listeners.h"
#include "backend/http/Peer.h"

namespace kivo::backend {

namespace asio = boost::asio;
using asio::ip::tcp;

namespace {

constexpr std::chrono::milliseconds acceptPause(50);
constexpr std::chrono::milliseconds pollInterval(1);

int chooseHttp1(SSL*, const unsigned char** chosen, unsigned char* size,
                const unsigned char* offered, unsigned int offeredSize, void*) {
    static constexpr unsigned char http1[] = "\x08http/1.1";
    unsigned char* choice = nullptr;
    const int outcome =
        SSL_select_next_proto(&choice, size, http1, sizeof http1 - 1, offered, offeredSize);
    *chosen = choice;
    return outcome == OPENSSL_NPN_NEGOTIATED ? SSL_TLSEXT_ERR_OK : SSL_TLSEXT_ERR_NOACK;
}

void configure(asio::ssl::context& tls, const Identity& identity) {
    if (identity.certificate.empty()) return;
    tls.use_certificate_chain(asio::buffer(identity.certificate));
    tls.use_private_key(asio::buffer(identity.privateKey), asio::ssl::context::pem);
    SSL_CTX_set_min_proto_version(tls.native_handle(), TLS1_2_VERSION);
    SSL_CTX_set_alpn_select_cb(tls.native_handle(), chooseHttp1, nullptr);
}

}  // namespace

class Server::Impl {
public:
    explicit Impl(ServerOptions&& options)
        : shared_{.options = std::move(options)},
          acceptors_(listenOnLoopback(context_, shared_.options.port)) {
        configure(shared_.tls, shared_.options.identity);
        const auto& proxyIdentity = shared_.options.proxyIdentity;
        configure(shared_.proxyTls,
                  proxyIdentity.certificate.empty() ? shared_.options.identity : proxyIdentity);
        configure(shared_.untrusted, Authority::make().issue(loopbackHosts()));
        for (auto& acceptor : acceptors_)
            asio::co_spawn(context_, accept(acceptor), asio::detached);
        thread_ = std::thread([this] { run(); });
    }

    ~Impl() {
        context_.stop();
        thread_.join();
    }

    std::uint16_t port() const { return acceptors_.front().local_endpoint().port(); }

    template <typename Action>
    void forEachConnection(Action action) {
        asio::post(context_, [this, action] {
            for (auto* connection : open_) action(*connection);
        });
    }

    void wakeUp(Connection::WakeUp reason) {
        forEachConnection([reason](Connection& each) { each.wakeUp(reason); });
    }

    bool isEmpty() {
        std::promise<bool> empty;
        asio::post(context_, [&] { empty.set_value(open_.empty()); });
        return empty.get_future().get();
    }

private:
    void run() {
        pthread_setname_np(pthread_self(), "kivo-backend");
        context_.run();
    }

    /// Continues after every error, since most are temporary, such as too few descriptors.
    asio::awaitable<void> accept(tcp::acceptor& acceptor) {
        for (;;) {
            boost::system::error_code error;
            auto socket =
                co_await acceptor.async_accept(asio::redirect_error(asio::use_awaitable, error));
            if (error) {
                asio::steady_timer timer(context_, acceptPause);
                co_await timer.async_wait(asio::use_awaitable);
            } else if (shared_.options.onlyOwnUser && !isOwnUser(socket)) {
                report("rejected: a program of another user tried to connect");
            } else if (open_.size() < shared_.options.limits.connections) {
                full_ = false;
                asio::co_spawn(context_, serve(std::move(socket)), asio::detached);
            } else {
                reject(socket);
            }
        }
    }

    /// Reported once until there is room again.
    void reject(tcp::socket& socket) {
        boost::system::error_code ignored;
        socket.non_blocking(true, ignored);
        socket.write_some(asio::buffer(shared_.options.whenFull), ignored);
        if (!std::exchange(full_, true))
            report("rejected: " + std::to_string(open_.size()) + " clients are already connected");
    }

    void report(const std::string& reason) const {
        if (shared_.options.onHandshakeFailed) shared_.options.onHandshakeFailed(reason);
    }

    asio::awaitable<void> serve(tcp::socket socket) {
        socket.set_option(tcp::no_delay(true));
        Connection connection(std::move(socket), shared_, ++connections_);
        open_.insert(&connection);
        try {
            co_await connection.serve();
        } catch (const std::exception&) {
            // The peer has gone or broke TLS: there is nobody to tell.
        }
        open_.erase(&connection);
    }

    ServerContext shared_;
    std::set<Connection*> open_;
    std::uint64_t connections_ = 0;
    bool full_ = false;
    asio::io_context context_{1};
    std::vector<tcp::acceptor> acceptors_;
    std::thread thread_;
};

Server::Server(ServerOptions options)
    : impl_(std::make_unique<Impl>(std::move(options))), port_(impl_->port()) {}

Server::~Server() = default;

std::uint16_t Server::port() const { return port_; }

void Server::release() {
    if (impl_) impl_->wakeUp(Connection::WakeUp::release);
}

void Server::wake() {
    if (impl_) impl_->wakeUp(Connection::WakeUp::news);
}

void Server::closeIdleConnections() {
    if (impl_) impl_->forEachConnection(std::mem_fn(&Connection::closeIfIdle));
}

void Server::awaitDisconnects(std::chrono::milliseconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (impl_ && !impl_->isEmpty() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(pollInterval);
}

void Server::stop() { impl_.reset(); }

}  // namespace kivo::backend
