#include "backend/Server.h"
#include "tests/backend/RawClient.h"
#include "tests/support/Patience.h"
#include "tests/support/ScriptedBackend.h"
#include "tests/support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <chrono>
#include <future>

namespace kivo::tests {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

std::string get(const std::string& path) { return "GET " + path + " HTTP/1.1\r\nHost: h\r\n\r\n"; }

class ServerTest : public testing::Test {
protected:
    ScriptedBackend& backend() { return backend_; }
    RawClient connect() const { return RawClient(backend_.port()); }
    RawClient connectSecurely() const {
        RawClient client(backend_.port());
        EXPECT_TRUE(client.startTls(backend_.trustFile(), "localhost"));
        return client;
    }

private:
    TemporaryDirectory folder_;
    ScriptedBackend backend_{folder_.path(), {"api.production.example"}};
};

TEST_F(ServerTest, KeepsAConnectionAliveAndEveryHeaderLine) {
    backend().answer("/one", messageReply("first"));
    backend().answer("/two", messageReply("second"));
    auto client = connectSecurely();
    client.send(
        "POST /one HTTP/1.1\r\nHost: h\r\nX-Twice: a\r\nx-empty:\r\nx-twice: b\r\n"
        "Content-Length: 4\r\n\r\nbody" +
        get("/two?query"));
    client.readTo("first");
    client.readTo("second");

    const auto requests = backend().requests();
    ASSERT_EQ(requests.size(), 2);
    EXPECT_EQ(requests[0].connection, requests[1].connection);
    EXPECT_EQ(requests[0].body, "body");
    EXPECT_TRUE(requests[0].tls);
    EXPECT_THAT(requests[0].values("x-TWICE"), ElementsAre("a", "b"));
    EXPECT_THAT(requests[0].values("x-empty"), ElementsAre(""));
}

TEST_F(ServerTest, AnswersAsTheHostThatConnectNamed) {
    backend().answer("/road", messageReply("through the tunnel"));
    auto client = connect();
    client.send("CONNECT api.production.example:443 HTTP/1.1\r\n\r\n");
    EXPECT_THAT(client.readTo("\r\n\r\n"), StartsWith("HTTP/1.1 200 "));
    ASSERT_TRUE(client.startTls(backend().trustFile(), "api.production.example"));
    client.send(get("/road"));
    client.readTo("through the tunnel");
    EXPECT_EQ(backend().last("/road").authority, "api.production.example:443");
}

TEST_F(ServerTest, ServesPlainRequestsOnTheSamePort) {
    backend().answer("/plain", messageReply("plain"));
    auto client = connect();
    client.send(get("http://other.example/plain"));
    client.readTo("plain");
    EXPECT_FALSE(backend().last("/plain").tls);
    EXPECT_EQ(backend().last("/plain").authority, "h");
}

TEST_F(ServerTest, RefusesWhatIsNoRequest) {
    const std::string endless(100 * 1024, 'x');
    const std::vector<std::pair<std::string, std::string>> cases{
        {"hello\r\n\r\n", "HTTP/1.1 400 "},
        {std::string("G\0\xFF\x01 / HTTP/1.1\r\n\r\n", 16), "HTTP/1.1 400 "},
        {"POST / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\n", "HTTP/1.1 400 "},
        {"POST / HTTP/1.1\r\nContent-Length: 9999999\r\n\r\n" + endless, "HTTP/1.1 413 "},
        {"GET / HTTP/1.1\r\nx: " + endless + "\r\n\r\n", "HTTP/1.1 431 "},
        {"POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nno number\r\n", "HTTP/1.1 400 "},
    };
    for (const auto& [bytes, answer] : cases) {
        auto client = connect();
        client.send(bytes);
        EXPECT_THAT(client.readToEnd(), StartsWith(answer)) << bytes.substr(0, 60);
        auto secure = connectSecurely();
        secure.send(bytes);
        EXPECT_THAT(secure.readToEnd(), StartsWith(answer)) << bytes.substr(0, 60);
    }
    EXPECT_TRUE(backend().requests().empty());
}

TEST_F(ServerTest, OutlivesABrokenHandshake) {
    auto broken = connect();
    const std::string hello("\x16\x03\x01\0\x30\x01\0\0\x2c", 9);
    broken.send(hello + std::string(44, 'x'));
    EXPECT_THAT(broken.readToEnd(), Not(HasSubstr("HTTP")));
    auto sound = connectSecurely();
    sound.send(get("/"));
    sound.readTo("nobody scripted this path");
}

TEST_F(ServerTest, MisbehavesAsTheReplySays) {
    backend().answer("/cut", cutInHalf({.body = "0123456789"}));
    backend().answer("/closed", closedBeforeReply());
    backend().answer("/raw", rawReply("what is this?"));
    const std::vector<std::pair<std::string, testing::Matcher<const std::string&>>> cases{
        {"/cut", AllOf(HasSubstr("Content-Length: 10\r\n"), EndsWith("\r\n\r\n01234"))},
        {"/closed", ""},
        {"/raw", "what is this?"},
    };
    for (const auto& [path, answer] : cases) {
        auto client = connectSecurely();
        client.send(get(path));
        EXPECT_THAT(client.readToEnd(), answer) << path;
    }
}

TEST_F(ServerTest, HoldsAReplyUntilItIsReleased) {
    backend().answer("/hang", hanging(messageReply("at last")));
    backend().answer("/other", messageReply("meanwhile"));
    auto waiting = connectSecurely();
    waiting.send(get("/hang"));
    ASSERT_TRUE(backend().awaitRequests("/hang", 1, patience));
    auto other = connectSecurely();
    other.send(get("/other"));
    other.readTo("meanwhile");
    backend().release();
    waiting.readTo("at last");
}

TEST_F(ServerTest, StopsAtOnceWhileRepliesHang) {
    backend().answer("/hang", hanging());
    backend().answer("/slow", delayed(1h, {}));
    auto hanging = connectSecurely();
    auto slow = connectSecurely();
    hanging.send(get("/hang"));
    slow.send(get("/slow"));
    ASSERT_TRUE(backend().awaitRequests("", 2, patience));
    const auto start = std::chrono::steady_clock::now();
    backend().stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 200ms);
    EXPECT_EQ(hanging.readToEnd(), "");
    EXPECT_EQ(slow.readToEnd(), "");
    EXPECT_THROW(connect(), std::runtime_error);
}

TEST(ServerLimitsTest, ASilentConnectionIsClosed) {
    backend::Server server({.identity = backend::Authority::make().issue({"localhost"}),
                            .handler = [](const Request&) { return Reply{}; },
                            .limits = {.idle = 50ms}});
    RawClient silent(server.port());
    EXPECT_EQ(silent.readToEnd(), "");
}

TEST(ServerLimitsTest, AClientThatLeavesAHangingReplyIsNoticed) {
    std::promise<bool> delivered;
    backend::Server server(
        {.identity = backend::Authority::make().issue({"localhost"}),
         .handler = [](const Request&) { return hanging(); },
         .finished = [&](const auto& exchange) { delivered.set_value(exchange.delivered); }});
    RawClient(server.port()).send(get("/"));
    auto outcome = delivered.get_future();
    ASSERT_EQ(outcome.wait_for(patience), std::future_status::ready);
    EXPECT_FALSE(outcome.get());
}

}  // namespace
}  // namespace kivo::tests
