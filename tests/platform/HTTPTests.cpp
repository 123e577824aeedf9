#include <fcntl.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <set>

#include "kivo/platform/HTTPTransfer.h"
#include "tests/platform/HTTPTest.h"
#include "tests/platform/NginxPeer.h"

namespace kivo::tests {

namespace {

using namespace platform;
using namespace std::chrono_literals;
using testing::IsEmpty;

TEST_F(HTTPTest, WhatGoesWrongHasItsCodeAndHandsOverNothing) {
    struct Row {
        std::string url;
        int errorCode;
    };
    const TemporaryDirectory elsewhere;
    const ScriptedBackend distrusted(elsewhere.path());
    const auto gone = backend().sibling();
    gone->stop();
    backend().answer("cut", cutInHalf(jsonReply(401, "a body that is cut")));
    backend().answer("empty", closedBeforeReply());
    backend().answer("garbage", rawReply("this is no HTTP\r\n\r\n"));
    backend().answer("header", rawReply("HTTP/1.1 2x0 what\r\n\r\n"));
    backend().answer("chunk",
                     rawReply("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n"));
    const std::vector<Row> rows = {
        {gone->url("a"), -1004},
        {"https://" + std::string(64, 'x') + ".invalid/", -1003},
        {distrusted.url("a"), -1202},
        {backend().url("cut"), -1005},
        {backend().plainUrl("cut"), -1005},
        {backend().url("empty"), -1005},
        {backend().url("garbage"), -1011},
        {backend().url("header"), -1011},
        {backend().url("chunk"), -1005},
        {"https:///a", -1000},
        {"https:a", -1000},
        {"relative/a", -1002},
        {"ftp://localhost/a", -1002},
        {"file:///etc/hostname", -1002},
    };
    for (const auto& row : rows) {
        const auto outcome = get(row.url);
        EXPECT_EQ(outcome.errorCode, row.errorCode) << row.url;
        EXPECT_FALSE(outcome.data) << row.url;
        EXPECT_FALSE(outcome.response) << row.url;
    }
    for (const char* method : {"", "TWO WORDS", "GET / HTTP/1.1\r\nx: y", "ÄÖ"})
        EXPECT_EQ(load(request("a", method)).errorCode, -1000) << method;
    EXPECT_THAT(backend().requests("/a"), IsEmpty());
    EXPECT_THAT(distrusted.requests(), IsEmpty());
}

TEST_F(HTTPTest, BodiesAreBoundedUnlessTheyAreDiscarded) {
    constexpr auto limit = HTTPTransfer::maximumBodySize;
    backend().answer("most", jsonReply(200, std::string(limit, 'x')));
    backend().answer("much", jsonReply(200, std::string(limit + 1, 'x')));
    EXPECT_EQ(get(backend().url("most")).data.value_or("").size(), limit);
    EXPECT_EQ(get(backend().url("much")).errorCode, -1103);
    auto discarding = request("much");
    discarding.setDiscardsReplyBody(true);
    const auto outcome = load(discarding);
    EXPECT_EQ(outcome.status(), 200);
    EXPECT_EQ(outcome.data, "");
}

TEST_F(HTTPTest, ConnectionsAreReusedButNotAfterALoadWasCutOff) {
    backend().answer("fine", jsonReply(200, "fine"));
    backend().answer("slow", hanging());
    const auto connection = [&] {
        EXPECT_EQ(get(backend().url("fine")).status(), 200);
        return backend().last("fine").connection;
    };
    const auto first = connection();
    EXPECT_EQ(connection(), first);

    Load cancelled = begin(request("slow"));
    Load other = begin(request("slow"));
    ASSERT_TRUE(backend().awaitRequests("slow", 2, patience));
    for (Load* load : {&cancelled, &other}) releaseUntilEnded(*load);  // Two idle ones now.
    cancelled = begin(request("slow"));
    ASSERT_TRUE(backend().awaitRequests("slow", 3, patience));
    cancelled.cancel();
    EXPECT_EQ(cancelled.outcome().errorCode, -999);
    const auto second = connection();
    EXPECT_GT(second, 2U) << "neither the one that was cut off nor the idle one";
    EXPECT_EQ(connection(), second);

    auto impatient = request("slow");
    impatient.setTimeoutInterval(200ms);
    EXPECT_EQ(load(impatient).errorCode, -1001);
    EXPECT_GT(connection(), second);
}

TEST_F(HTTPTest, ManyRequestsToOneHostShareSixConnections) {
    backend().answer("slow", hanging(jsonReply(200, "at last")));
    std::vector<Load> loads;
    for (int number = 0; number < 20; ++number) loads.push_back(begin(request("slow")));
    ASSERT_TRUE(backend().awaitRequests("slow", 6, patience));
    for (auto& load : loads) releaseUntilEnded(load);
    std::set<std::uint64_t> connections;
    for (const auto& request : backend().requests("slow")) connections.insert(request.connection);
    EXPECT_EQ(connections.size(), 6U);
    for (auto& load : loads) EXPECT_EQ(load.outcome().data, "at last");
}

TEST_F(HTTPTest, ALoadThatWaitsForItsTurnCanBeCancelled) {
    backend().answer("slow", hanging());
    backend().answer("fine", jsonReply(200, "fine"));
    std::vector<Load> hung;
    for (int number = 0; number < 6; ++number) hung.push_back(begin(request("slow")));
    ASSERT_TRUE(backend().awaitRequests("slow", 6, patience));
    Load waiting = begin(request("never"));
    Load next = begin(request("fine"));
    waiting.cancel();
    EXPECT_EQ(waiting.outcome().errorCode, -999);
    EXPECT_FALSE(next.hasEnded());
    hung.front().cancel();
    EXPECT_EQ(next.outcome().data, "fine");
    EXPECT_THAT(backend().requests("never"), IsEmpty());
    for (auto& load : hung) load.cancel();
}

/// The descriptors of connections to `port`.
std::vector<int> connectionsTo(int port) {
    std::vector<int> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int descriptor = std::stoi(entry.path().filename());
        sockaddr_in6 peer{};  // Has room for either family; the port stands at the same place.
        socklen_t size = sizeof peer;
        if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
            peer.sin6_family != AF_UNIX && ntohs(peer.sin6_port) == port)
            found.push_back(descriptor);
    }
    return found;
}

TEST_F(HTTPTest, SocketsCloseOnExec) {
    backend().answer("fine", jsonReply(200, "fine"));
    get(backend().url("fine"));
    get(backend().plainUrl("fine"));
    const auto connections = connectionsTo(backend().port());
    EXPECT_EQ(connections.size(), 2U);
    for (const int descriptor : connections)
        EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << descriptor;
}

class HTTP2Test : public testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(NginxPeer::program))
            GTEST_SKIP() << "install nginx-light: it is the foreign HTTP/2 server";
        peer_.emplace(folder_.path());
        trustOnly(peer_->trustFile());
    }

    Load begin(const std::string& path, std::chrono::milliseconds idle = patience) {
        auto request = requestFor(peer().url(path));
        request.setTimeoutInterval(idle);
        return std::move(Load(URLSession::shared(), request).resume());
    }

    /// "HTTP/2.0" and the number of the connection.
    std::string told() { return begin("/").outcome().data.value_or("nothing"); }

    const NginxPeer& peer() const { return *peer_; }

private:
    TemporaryDirectory folder_;
    std::optional<NginxPeer> peer_;
};

TEST_F(HTTP2Test, RequestsShareAConnectionUntilALoadOnItWasCutOff) {
    const auto first = told();
    EXPECT_THAT(first, testing::StartsWith("HTTP/2.0 "));
    std::vector<Load> together;
    for (int number = 0; number < 10; ++number) together.push_back(begin("/"));
    for (auto& load : together) EXPECT_EQ(load.outcome().data, first);

    Load silent = begin("/silent");
    ASSERT_TRUE(peer().awaitSilentRequest());
    EXPECT_EQ(told(), first) << "a silent stream holds up no other";
    silent.cancel();
    EXPECT_EQ(silent.outcome().errorCode, -999);
    const auto second = told();
    EXPECT_NE(second, first);
    EXPECT_EQ(told(), second);

    EXPECT_EQ(begin("/silent", 200ms).outcome().errorCode, -1001);
    const auto third = told();
    EXPECT_THAT(third, testing::StartsWith("HTTP/2.0 "));
    EXPECT_NE(third, second);
}

TEST_F(HTTP2Test, APortThatSpeaksPlainHttpIsATlsError) {
    EXPECT_EQ(
        Load(URLSession::shared(), requestFor(peer().mistakenUrl())).resume().outcome().errorCode,
        -1200);
}

}  // namespace

}  // namespace kivo::tests
