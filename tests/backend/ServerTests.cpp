#include <boost/asio/ip/tcp.hpp>
#include <gmock/gmock.h>

#include <future>

#include "backend/http/Server.h"
#include "tests/support/Patience.h"
#include "tests/support/ScriptedBackend.h"
#include "tests/support/TemporaryDirectory.h"

namespace kivo::tests {

namespace {

using namespace std::chrono_literals;
using testing::ContainsRegex;
using testing::StartsWith;

using boost::asio::ip::tcp;

std::string get(const std::string& target) { return "GET " + target + " HTTP/1.1\r\n\r\n"; }

/// All that comes back to these bytes until the server closes.
std::string answerTo(std::uint16_t port, const std::string& bytes) {
    tcp::iostream socket("127.0.0.1", std::to_string(port));
    if (!socket) throw std::runtime_error("nobody listens");
    socket.expires_after(patience);
    socket << bytes << std::flush;
    std::string answer(std::istreambuf_iterator<char>(socket), {});
    if (socket.error() == boost::asio::error::connection_reset) answer += "(reset)";
    if (socket.error() == boost::asio::error::timed_out)
        throw std::runtime_error("a silent server");
    return answer;
}

class ServerTest : public testing::Test {
protected:
    std::string ask(const std::string& bytes) const { return answerTo(backend.port(), bytes); }

    TemporaryDirectory folder;
    ScriptedBackend backend{folder.path()};
};

TEST_F(ServerTest, RefusesWhatIsNoRequestAndGoesOn) {
    const std::string endless(100 * 1024, 'x');
    const std::string brokenHello("\x16\x03\x01\0\x30\x01\0\0\x2c", 9);
    const std::vector<std::pair<std::string, std::string>> cases{
        {brokenHello + std::string(44, 'x'), "\x15\x03"},  // An alert.
        {"hello\r\n\r\n", "HTTP/1.1 400 "},
        {"POST / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\n", "HTTP/1.1 400 "},
        {"POST / HTTP/1.1\r\nContent-Length: 9999999\r\n\r\n" + endless, "HTTP/1.1 413 "},
        {"GET / HTTP/1.1\r\nx: " + endless + "\r\n\r\n", "HTTP/1.1 431 "},
        {"POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n1;" + endless, "HTTP/1.1 431 "},
        {"POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n0\r\nx: " + endless,
         "HTTP/1.1 431 "},
        {"CONNECT h:443 HTTP/1.1\r\n\r\nhello\r\n\r\n", "HTTP/1.1 200 "},
    };
    for (const auto& [bytes, answer] : cases)
        EXPECT_THAT(ask(bytes), StartsWith(answer)) << bytes.substr(0, 60);
    backend.release();  // Of those connections none is left.
    EXPECT_TRUE(backend.requests().empty());
}

TEST_F(ServerTest, SpeaksAsStrictClientsExpect) {
    backend.answer("/", {.body = "body"});
    const std::string head =
        "^HTTP/1.1 200 OK\r\nContent-Length: 4\r\nDate: [A-Z][a-z]{2}, [0-9]{2} "
        "[A-Z][a-z]{2} [0-9]{4} [0-9:]{8} GMT\r\n";
    const std::vector<std::pair<std::string, std::string>> cases{
        {"GET / HTTP/1.0\r\n\r\n", head + "Connection: close\r\n\r\nbody$"},
        {"HEAD / HTTP/1.0\r\n\r\n", head + "Connection: close\r\n\r\n$"},
        {"GET / HTTP/1.0\r\nConnection: keep-alive\r\n\r\nGET / HTTP/1.0\r\n\r\n",
         head + "Connection: keep-alive\r\n\r\nbodyHTTP/1.1 200 .*: close\r\n\r\nbody$"},
        {"PUT / HTTP/1.1\r\nExpect: 100-Continue\r\nContent-Length: 1\r\nConnection: close"
         "\r\n\r\nx",
         "^HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 "},
        {"PUT / HTTP/1.0\r\nExpect: 100-continue\r\nContent-Length: 1\r\n\r\nx", head},
        {"PUT / HTTP/1.1\r\nExpect: 100-continue\r\nContent-Length: 9999999\r\n\r\n",
         "^HTTP/1.1 413 "},
    };
    for (const auto& [bytes, answer] : cases) EXPECT_THAT(ask(bytes), ContainsRegex(answer));
}

TEST_F(ServerTest, WaitsForClientsThatOnlyFinishedSending) {
    backend.answer("/", delayed(150ms, {.body = "body"}));
    tcp::iostream client("127.0.0.1", std::to_string(backend.port()));
    client.expires_after(patience);
    client << get("/") << std::flush;
    ASSERT_TRUE(backend.awaitRequests("/", 1));
    client << get("/") << std::flush;
    client.socket().shutdown(tcp::socket::shutdown_send);
    const std::string answers(std::istreambuf_iterator<char>(client), {});
    EXPECT_THAT(answers, ContainsRegex("200 OK.*\r\n\r\nbodyHTTP/1.1 200 OK.*\r\n\r\nbody$"));
}

TEST_F(ServerTest, ResetsConnectionsInEarnest) {
    backend.answer("/", {.body = "body", .delivery = Delivery::resetInHead});
    EXPECT_THAT(ask(get("/")),
                ContainsRegex("^HTTP/1.1 200 OK\r\nContent-Length: 4\r\n[^\r]*.reset.$"));
}

TEST_F(ServerTest, ReleasesWhatItHoldsAndWhatItWouldHoldAfterItsDelay) {
    std::size_t asked = 0;
    for (const auto delay : {0ms, 300ms}) {
        backend.answer("/", {.body = "body", .delivery = Delivery::hang, .delay = delay});
        auto answer = std::async(
            std::launch::async, [&] { return ask("GET / HTTP/1.1\r\nConnection: close\r\n\r\n"); });
        ASSERT_TRUE(backend.awaitRequests("/", ++asked));
        backend.release();
        EXPECT_THAT(answer.get(), testing::EndsWith("\r\n\r\nbody"));
    }
}

TEST_F(ServerTest, StopsAtOnceWhileRepliesHang) {
    backend.answer("/hang", hanging());
    backend.answer("/slow", delayed(1h, {.body = "x", .repetitions = Reply::endless}));
    auto hung = std::async(std::launch::async, [&] { return ask(get("/hang")); });
    auto slow = std::async(std::launch::async, [&] { return ask(get("/slow")); });
    ASSERT_TRUE(backend.awaitRequests("", 2));
    const auto start = std::chrono::steady_clock::now();
    backend.stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, patience);
    EXPECT_EQ(hung.get() + slow.get(), "");
    EXPECT_THROW(ask(""), std::runtime_error);
}

TEST(ServerLimitsTest, NoticesWhoIsSilentAndWhoLeaves) {
    const auto identity = backend::Authority::make().issue({"localhost"});
    const auto answer = [](const Request&) { return Reply(); };
    backend::Server impatient({.identity = identity, .handler = answer, .limits = {.idle = 50ms}});
    EXPECT_EQ(answerTo(impatient.port(), ""), "");
    for (const Reply& late : {hanging(), delayed(1h, {})}) {
        std::promise<bool> delivered;
        backend::Server server(
            {.identity = identity,
             .handler = [&](const Request&) { return late; },
             .onExchange = [&](const auto& exchange) { delivered.set_value(exchange.delivered); }});
        tcp::iostream("127.0.0.1", std::to_string(server.port())) << get("/") << std::flush;
        auto outcome = delivered.get_future();
        ASSERT_EQ(outcome.wait_for(patience), std::future_status::ready);
        EXPECT_FALSE(outcome.get());
    }
}

}  // namespace

}  // namespace kivo::tests
