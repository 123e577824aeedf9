#include "backend/admin/AdminClient.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>
#include <nlohmann/json.hpp>

#include <chrono>
#include <stdexcept>

#include "backend/admin/AdminPort.h"
#include "backend/base/NoBackend.h"

namespace kivo::backend {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using boost::system::error_code;

namespace {

constexpr std::chrono::seconds timeout(10);
constexpr std::size_t replyLimit = 64 * 1024 * 1024;

using Request = http::request<http::string_body>;
using Parser = http::response_parser<http::string_body>;

/// One request and its reply, with one time limit for both.
class Call {
public:
    Call(std::uint16_t port, Request request) : request_(std::move(request)) {
        parser_.body_limit(replyLimit);
        stream_.expires_after(timeout);
        stream_.async_connect({asio::ip::address_v4::loopback(), port},
                              [this](const error_code& error) { connected(error); });
        context_.run();
    }

    const error_code& error() const { return error_; }
    const http::response<http::string_body>& response() const { return parser_.get(); }

private:
    void connected(const error_code& error) {
        if (failed(error)) return;
        http::async_write(stream_, request_, [this](auto&&...) { sent(); });
    }

    /// A backend that turns the client away answers without having read the request, so a reply may
    /// wait even where sending failed.
    void sent() {
        http::async_read(stream_, buffer_, parser_,
                         [this](const error_code& reading, std::size_t) { failed(reading); });
    }

    bool failed(const error_code& error) {
        error_ = error;
        return static_cast<bool>(error);
    }

    asio::io_context context_;
    beast::tcp_stream stream_{context_};
    beast::flat_buffer buffer_;
    Request request_;
    Parser parser_;
    error_code error_;
};

Request requestFor(const std::string& method, const std::string& target, const std::string& body) {
    Request request{http::string_to_verb(method), target, 11};
    request.set(http::field::host, "localhost");
    request.set(http::field::connection, "close");
    request.body() = body;
    request.prepare_payload();
    return request;
}

[[noreturn]] void throwUnreachable(std::uint16_t port, const std::string& what) {
    throw NoBackend("no kivo-dev is running at admin port " + std::to_string(port) + " (" + what +
                    "); start one with: kivo-dev serve, or set the port that it printed with "
                    "--admin-port N");
}

/// The refusal's text. A request that is wrong in itself is a mistake of the user's.
[[noreturn]] void throwRefusal(http::status status, const std::string& body) {
    const auto refusal = nlohmann::json::parse(body, nullptr, false);
    const auto text = refusal.is_object() ? refusal.value("message", body) : body;
    if (status == http::status::bad_request) throw std::invalid_argument(text);
    if (status == http::status::service_unavailable) throw NoBackend(text);
    throw std::runtime_error(text);
}

}  // namespace

std::string AdminClient::ask(const std::string& method, const std::string& target,
                             const std::string& body) const {
    const Call call(port_, requestFor(method, target, body));
    if (call.error()) throwUnreachable(port_, call.error().message());
    const auto& answer = call.response();
    if (answer[http::field::server] != adminServerName)
        throwUnreachable(port_, "another program listens there");
    if (answer.result() == http::status::ok) return answer.body();
    throwRefusal(answer.result(), answer.body());
}

}  // namespace kivo::backend
