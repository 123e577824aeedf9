#include <cmath>
#include <future>
#include <set>

#include "kivo/api/WireModels.h"
#include "kivo/network/AuthInterceptor.h"
#include "kivo/network/NetworkClient.h"
#include "kivo/network/URLSession+Synchronous.h"
#include "kivo/platform/persistence/Keychain.h"
#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

/// Notes what an interceptor tells the loading system, in order.
class RecordingClient : public platform::URLProtocolClient {
public:
    void urlProtocolDidReceive(std::shared_ptr<const platform::URLResponse> /*response*/,
                               platform::CacheStoragePolicy policy) override {
        calls_.add(policy == platform::CacheStoragePolicy::notAllowed ? "response" : "cached");
    }
    void urlProtocolDidLoad(platform::Data /*data*/) override { calls_.add("data"); }
    void urlProtocolDidFinishLoading() override { calls_.add("finish"); }
    void urlProtocolDidFailWithError(std::exception_ptr /*error*/) override { calls_.add("error"); }

    /// Fails the test when patience ends first.
    std::vector<std::string> awaitFinish() {
        calls_.awaitLine("finish");
        return calls_.take();
    }

private:
    Lines calls_;
};

class InterceptorTest : public FrameworkTest {
protected:
    /// Every line `name` in the heads of the requests to `path`.
    std::vector<std::string> lines(std::string_view name, std::string_view path = "") {
        std::vector<std::string> found;
        for (const auto& request : backend().requests(path))
            std::ranges::copy(request.values(name), std::back_inserter(found));
        return found;
    }
    std::vector<std::string> bearers(std::string_view path) { return lines("Authorization", path); }

    auto interceptorOf(const std::string& path) {
        return std::make_shared<AuthInterceptor>(
            platform::URLRequest(*platform::URL::parse(backend().url(path))), nullptr, client_);
    }

    /// What the client of a load is told.
    std::vector<std::string> load(const std::string& path) {
        const auto interceptor = interceptorOf(path);
        interceptor->startLoading();
        return client_->awaitFinish();
    }

    /// The device identifiers of three requests where the keychain holds `stored`.
    std::vector<std::string> identifiersFor(const char* stored) {
        platform::Keychain::standard().add("kivo-access-token-service", "kivo-device-auth-account",
                                           stored);
        for (int request = 0; request < 3; ++request) load("sdk/authenticate");
        settle();
        return lines("x-unique-device-id");
    }

    static void forgetUserToken() {
        store().saveUserJwtToken("");
        settle();
    }

    const std::shared_ptr<RecordingClient> client_ = std::make_shared<RecordingClient>();
};

TEST_F(InterceptorTest, EveryRequestCarriesTheSixIdentityHeaders) {
    auto& plugin = pluginWithUser();
    plugin.updateDeviceToken("t");
    output().awaitLine("updateDeviceToken successfully: ");
    const auto identifier = backend().requests().front().header("x-unique-device-id");
    EXPECT_THAT(identifier, testing::MatchesRegex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"));
    for (const auto& [name, value] :
         std::map<std::string, std::string>{{"Content-Type", "application/json"},
                                            {"x-sdk-version", "1.0.0"},
                                            {"x-platform", "IOS"},
                                            {"x-package-name", "com.example.tests"},
                                            {"x-unique-device-id", identifier}})
        EXPECT_THAT(lines(name), ElementsAre(value, value, value));
    EXPECT_THAT(lines("x-session-id"), ElementsAre("", "s-1", "s-1")) << "empty, and yet sent";
    EXPECT_THAT(bearers(""), ElementsAre("Bearer m-1", "Bearer u-1"));
}

TEST_F(InterceptorTest, UserAuthenticationRenewsAnEmptyMerchantTokenAndOnceMoreOn401) {
    pluginWithUser();
    settle();
    for (const char* token : {"m-2", ""})
        backend().answer("sdk/authenticate", merchantReply(token, "s-2"));
    backend().answer("user/authenticate", refusedReply(401));
    plugin().setUser({}, {}, {}, {});
    EXPECT_THAT(output().awaitLines("setUser successfully: ", 2).back(),
                HasSubstr("success: false"));
    settle();
    EXPECT_EQ(store().getSessionId(), "s-2") << "a renewal keeps the session that it began";
    EXPECT_THAT(bearers("user/authenticate"), ElementsAre("Bearer m-1", "Bearer m-2", "Bearer"))
        << "one bearer value each, and the bare word for an empty token";
    EXPECT_THAT(output().lines("temp-token >> "),
                ElementsAre("temp-token >> m-1", "temp-token >> "));
    EXPECT_EQ(backend().last("user/authenticate").header("x-session-id"), "s-1")
        << "read once a load, before the renewal";
}

TEST_F(InterceptorTest, AnEmptyUserTokenIsRenewedBeforeTheRequestGoesOut) {
    auto& plugin = pluginWithUser();
    forgetUserToken();
    backend().answer("sdk/authenticate", merchantReply("m-2", "s-2"));
    backend().answer("user/authenticate", userReply("u-2"));
    plugin.unsetUser();
    output().awaitLine("unsetUser successfully: ");
    EXPECT_THAT(bearers("user/unset"), ElementsAre("Bearer u-2"));
    settle();
    EXPECT_EQ(store().getUserJwtToken(), "u-2");

    forgetUserToken();
    backend().answer("user/authenticate", userReply(""));
    plugin.unsetUser();
    output().awaitLines("unsetUser successfully: ", 2);
    EXPECT_THAT(bearers("user/unset"), ElementsAre("Bearer u-2")) << "renewed to nothing";
}

TEST_F(InterceptorTest, Each401RefreshesAndResendsWithOneMoreBearerValue) {
    auto& plugin = pluginWithUser("u-1");
    for (const char* token : {"u-2", "u-3"})
        backend().answer("user/authenticate", userReply(token));
    backend().answer("update-device-token", refusedReply(401));
    backend().answer("update-device-token", refusedReply(401));
    backend().answer("update-device-token", messageReply("at last"));
    plugin.updateDeviceToken("push");
    EXPECT_THAT(output().awaitLine("updateDeviceToken successfully: "), HasSubstr("at last"));

    EXPECT_THAT(bearers("update-device-token"), ElementsAre("Bearer u-1", "Bearer u-1,Bearer u-2",
                                                            "Bearer u-1,Bearer u-2,Bearer u-3"));
    for (const auto& request : backend().requests("update-device-token")) {
        EXPECT_EQ(request.body, R"({"deviceToken":"push"})");
        EXPECT_EQ(request.header("x-session-id"), "s-1");
    }
}

TEST_F(InterceptorTest, AnEmptyDeviceIdentifierIsSentAsItIs) {
    EXPECT_THAT(identifiersFor(""), ElementsAre("", "", ""));
}

TEST_F(InterceptorTest, ADeviceIdentifierThatHasGoneIsReplacedAtTheNextCall) {
    pluginWithUser();
    settle();
    const auto file = (home().path() / "data/kivo/keychain.db").string();
    const auto removed = "rm " + file;
    const auto emptied = "python3 -c \"import sqlite3; file = sqlite3.connect('" + file +
                         "'); file.execute('DELETE FROM items'); file.commit()\"";
    for (const auto& loss : {removed, emptied}) {
        ASSERT_EQ(std::system(loss.c_str()), 0);
        for (int call = 0; call < 2; ++call) plugin().unsetUser();
        settle();
    }
    const auto sent = lines("x-unique-device-id");
    ASSERT_THAT(sent, SizeIs(6));
    for (std::size_t pair = 0; pair < 6; pair += 2) EXPECT_EQ(sent[pair], sent[pair + 1]);
    EXPECT_THAT(std::set(sent.begin(), sent.end()), SizeIs(3));
}

TEST_F(InterceptorTest, ADeviceIdentifierThatIsNotTextBlocksTheNewOneOfEveryRequest) {
    const auto identifiers = identifiersFor("\xff\xfe");
    EXPECT_THAT(std::set(identifiers.begin(), identifiers.end()), SizeIs(3));
    EXPECT_THAT(output().lines("Error: "),
                ElementsAre("Error: -25299", "Error: -25299", "Error: -25299"));
}

TEST_F(InterceptorTest, RelaysDataBeforeTheResponseButForUserAuthentication) {
    pluginWithUser();
    EXPECT_THAT(load("plain"), ElementsAre("data", "response", "finish"));
    EXPECT_THAT(load("user/authenticate"), ElementsAre("response", "data", "finish"));
    backend().answer("cut", Reply{.delivery = Delivery::closeBeforeReply});
    EXPECT_THAT(load("cut"), ElementsAre("finish")) << "errors are never passed on";
}

TEST_F(InterceptorTest, AnInterceptorStartedAgainAfterAFailedRenewalSendsWithoutAToken) {
    plugin();
    const auto interceptor = interceptorOf("plain");
    interceptor->startLoading();
    output().awaitLine("Error during async operations: missingUserParams");
    EXPECT_THAT(backend().requests("plain"), IsEmpty());
    interceptor->startLoading();
    EXPECT_THAT(client_->awaitFinish(), ElementsAre("data", "response", "finish"));
    EXPECT_THAT(bearers("plain"), IsEmpty());
}

class NetworkClientTest : public FrameworkTest {
protected:
    NetworkClientTest() { store().saveUserJwtToken("u-1"); }

    using Parameters = NetworkClient::Parameters;

    /// What goes out for a request whose reply can be read.
    Request sent(const std::string& method, const std::optional<Parameters>& parameters,
                 const std::string& endpoint = "custom") {
        using Envelope = ApiResponse<UnsetUserResponseData>;
        bool isRead = false;
        NetworkClient::instance().request<Envelope>(
            endpoint, method, parameters, [&](auto result) { isRead = result.value.has_value(); });
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
    // A forked child of this process would do nothing.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    backend().answer("a.txt", Reply::json(404, "text"));
    auto& session = platform::URLSession::shared();
    const platform::URLRequest request(*platform::URL::parse(backend().url("a.txt")));
    const auto [data, response] = synchronousDataTask(session, request);
    EXPECT_EQ(data, "text");
    EXPECT_EQ(platform::httpStatusCode(response.get()), 404);

    const platform::URLRequest nowhere(*platform::URL::parse("nowhere"));
    EXPECT_DEATH(synchronousDataTask(session, nowhere), "Unexpectedly found nil");
    const auto misuse = [&] {
        std::promise<void> never;
        loop().submit([&] { synchronousDataTask(session, request); });
        never.get_future().wait_for(patience);
    };
    EXPECT_DEATH(misuse(), "called on the loop");
}

}  // namespace

}  // namespace kivo::tests
