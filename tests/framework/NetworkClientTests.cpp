#include <cmath>
#include <future>

#include "kivo/api/WireModels.h"
#include "kivo/network/NetworkClient.h"
#include "kivo/network/URLSession+Synchronous.h"
#include "kivo/platform/base/Error.h"
#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using testing::HasSubstr;

using Envelope = ApiResponse<UnsetUserResponseData>;

class NetworkClientTest : public FrameworkTest {
protected:
    /// Sends to the endpoint under test, as an application user whose token is "u-1", and waits.
    platform::Result<Envelope> request(const std::string& method,
                                       const std::optional<NetworkClient::Parameters>& parameters,
                                       const std::string& endpoint = "custom") {
        store().saveUserJwtToken("u-1");
        settle();
        std::optional<platform::Result<Envelope>> outcome;
        NetworkClient::instance().request<Envelope>(
            endpoint, method, parameters, [&](auto result) { outcome.emplace(std::move(result)); });
        settle();
        return outcome.value();
    }

    static std::string error(const platform::Result<Envelope>& result) {
        const auto* error = std::get_if<std::exception_ptr>(&result);
        return error == nullptr ? "none" : platform::describe(*error);
    }
};

TEST_F(NetworkClientTest, OnlyPostAndPutSpelledSoCarryABody) {
    for (const char* method : {"POST", "PUT", "post", "GET", "DELETE"}) {
        EXPECT_EQ(error(request(method, NetworkClient::Parameters{{"a", 1}})), "none");
        const auto sent = backend().last("custom");
        const bool carries =
            std::string_view(method) == "POST" || std::string_view(method) == "PUT";
        EXPECT_EQ(sent.method, method);
        EXPECT_EQ(sent.body, carries ? R"({"a":1})" : "");
        EXPECT_EQ(sent.target, "/custom") << "no query either";
    }
    request("POST", std::nullopt, "/custom");
    EXPECT_EQ(backend().last("custom").header("Content-Length"), "0");
    EXPECT_EQ(backend().last("custom").target, "//custom") << "base and endpoint as they stand";
    EXPECT_EQ(output().lines("url-is: ").back(), "url-is: https://localhost:8443//custom");
}

TEST_F(NetworkClientTest, WhatCannotBeEncodedGoesOutWithoutABody) {
    struct Foreign {};
    for (const std::any& value :
         {std::any(std::nan("")), std::any(HUGE_VAL), std::any(Foreign())}) {
        EXPECT_EQ(error(request("POST", NetworkClient::Parameters{{"value", value}})), "none");
        EXPECT_EQ(backend().last("custom").body, "");
    }
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
