// Boost.Beast on one thread: a coroutine for each connection, one call after another on it. It has
// neither HTTP/2 nor a pool of connections; a host writes these lines itself.

#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast.hpp>
#include <boost/beast/ssl.hpp>

#include "benchmarks/Workload.h"

using namespace kivo::benchmarks;
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using asio::use_awaitable;

namespace {

class Beast {
public:
    explicit Beast(const Load& load)
        : load_(load), tls_(asio::ssl::context::tls_client), request_(http::verb::post, path, 11) {
        if (load.usesTLS()) tls_.load_verify_file(load.trust);
        tls_.set_verify_mode(asio::ssl::verify_peer);
        request_.set(http::field::host, "localhost:" + load.port);
        request_.set(http::field::accept, "*/*");
        for (const auto& [name, value] : headers) request_.set(name, value);
        request_.body() = body;
        request_.prepare_payload();
    }

    void run(int calls) {
        left_ = calls;
        for (int open = 0; open < std::min(load_.inFlight, connections); ++open)
            asio::co_spawn(context_, connect(), stopOnError);
        context_.run();
        context_.restart();
    }

private:
    static void stopOnError(const std::exception_ptr& error) {
        if (error) std::rethrow_exception(error);
    }

    asio::awaitable<void> connect() {
        auto resolver = asio::ip::tcp::resolver(context_);
        const auto found = co_await resolver.async_resolve("localhost", load_.port, use_awaitable);
        beast::tcp_stream plain(context_);
        co_await plain.async_connect(found, use_awaitable);
        plain.socket().set_option(asio::ip::tcp::no_delay(true));
        if (!load_.usesTLS()) co_return co_await callAll(plain);
        beast::ssl_stream<beast::tcp_stream> encrypted(std::move(plain), tls_);
        encrypted.set_verify_callback(asio::ssl::host_name_verification("localhost"));
        co_await encrypted.async_handshake(asio::ssl::stream_base::client, use_awaitable);
        co_await callAll(encrypted);
    }

    template <typename Stream>
    asio::awaitable<void> callAll(Stream& stream) {
        beast::flat_buffer buffer;
        while (left_-- > 0) {
            http::response<http::string_body> reply;
            co_await http::async_write(stream, request_, use_awaitable);
            co_await http::async_read(stream, buffer, reply, use_awaitable);
            requireReply(reply.body());
        }
    }

    const Load load_;
    asio::io_context context_{1};
    asio::ssl::context tls_;
    http::request<http::string_body> request_;
    int left_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    const Load load(argc, argv);
    Beast candidate(load);
    return measure(load, candidate);
}
