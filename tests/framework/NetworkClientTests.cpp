#include <cmath>
#include <future>

#include "kivo/api/WireModels.h"
#include "kivo/network/NetworkClient.h"
#include "kivo/network/URLSession+Synchronous.h"
#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using testing::HasSubstr;

class NetworkClientTest : public FrameworkTest {
protected:
    NetworkClientTest() { store().saveUserJwtToken("u-1"); }

    using Parameters = NetworkClient::Parameters;

    /// What goes out for a request whose reply can be read.
    Request sent(const std::string& method, const std::optional<Parameters>& parameters,
                 const std::string& endpoint = "custom") {
        using Envelope = ApiResponse<UnsetUserResponseData>;
        bool isRead = false;
        NetworkClient::instance().request<Envelope>(endpoint, method, parameters, [&](auto result) {
            isRead = std::holds_alternative<Envelope>(result);
        });
        settle();
        EXPECT_TRUE(isRead);
        return backend().requests().back();
    }
};

TEST_F(NetworkClientTest, OnlyPostAndPutSpelledSoCarryABody) {
    const std::map<std::string, std::string> table = {
        {"POST", R"({"a":1})"}, {"PUT", R"({"a":1})"}, {"post", ""}, {"GET", ""}, {"DELETE", ""}};
    for (const auto& [method, body] : table) {
        const auto request = sent(method, Parameters{{"a", 1}});
        EXPECT_EQ(request.method, method);
        EXPECT_EQ(request.body, body);
        EXPECT_EQ(request.target, "/custom") << "no query either";
    }
    const auto empty = sent("POST", std::nullopt, "/custom");
    EXPECT_EQ(empty.header("Content-Length"), "0");
    EXPECT_EQ(empty.target, "//custom") << "base and endpoint as they stand";
    EXPECT_EQ(output().lines("url-is: ").back(), "url-is: https://localhost:8443//custom");
}

TEST_F(NetworkClientTest, WhatCannotBeEncodedGoesOutWithoutABody) {
    struct Foreign {};
    for (const auto& value : {std::any(std::nan("")), std::any(HUGE_VAL), std::any(Foreign())})
        EXPECT_EQ(sent("POST", Parameters{{"value", value}}).body, "");
    const auto lines = output().lines("Failed to encode parameters: ");
    EXPECT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines, testing::Each(HasSubstr("value")));
}

TEST_F(NetworkClientTest, TheSynchronousFetchWaitsAndStatesItsMisuse) {
    GTEST_FLAG_SET(death_test_style,
                   "threadsafe");  // A forked child of this process would do nothing.
    backend().answer("a.txt", jsonReply(404, "text"));
    auto& session = platform::URLSession::shared();
    const platform::URLRequest request(*platform::URL::parse(backend().url("a.txt")));
    const auto [data, response] = synchronousDataTask(session, request);
    EXPECT_EQ(data, "text");
    EXPECT_EQ(platform::httpStatusCode(response.get()), 404);

    const platform::URLRequest nowhere(*platform::URL::parse("nowhere"));
    EXPECT_DEATH(synchronousDataTask(session, nowhere), "Unexpectedly found nil");
    const auto misuse = [&] {
        std::promise<void> never;
        platform::TaskPool::shared().submit([&] { synchronousDataTask(session, request); });
        never.get_future().wait_for(patience);
    };
    EXPECT_DEATH(misuse(), "called on the pool");
}

}  // namespace

}  // namespace kivo::tests
