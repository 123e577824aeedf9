#include <condition_variable>
#include <mutex>
#include <set>

#include "kivo/network/AuthInterceptor.h"
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
    using Response = std::shared_ptr<const platform::URLResponse>;

    void urlProtocolDidReceive(Response /*response*/,
                               platform::CacheStoragePolicy policy) override {
        add(policy == platform::CacheStoragePolicy::notAllowed ? "response" : "cached");
    }
    void urlProtocolDidLoad(platform::Data /*data*/) override { add("data"); }
    void urlProtocolDidFinishLoading() override { add("finish"); }
    void urlProtocolDidFailWithError(std::exception_ptr /*error*/) override { add("error"); }

    std::vector<std::string> awaitFinish() {
        std::unique_lock lock(mutex_);
        added_.wait_for(lock, patience,
                        [&] { return !calls_.empty() && calls_.back() == "finish"; });
        return std::exchange(calls_, {});
    }

private:
    void add(const char* call) {
        const std::lock_guard lock(mutex_);
        calls_.emplace_back(call);
        added_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable added_;
    std::vector<std::string> calls_;
};

class InterceptorTest : public FrameworkTest {
protected:
    /// The bearer values of every request to `path`, a line each.
    std::vector<std::string> bearers(std::string_view path) {
        std::vector<std::string> found;
        for (const auto& request : backend().requests(path)) {
            const auto values = request.values("Authorization");
            EXPECT_LE(values.size(), 1U) << "joined in one line";
            found.push_back(values.empty() ? "none" : values.front());
        }
        return found;
    }

    auto interceptorOf(const std::string& path) {
        return std::make_shared<AuthInterceptor>(
            platform::URLRequest(*platform::URL::parse(backend().url(path))), nullptr, client_);
    }

    /// The device identifiers of three requests where the keychain holds `stored`.
    std::vector<std::string> identifiersFor(const char* stored) {
        platform::Keychain::standard().add("kivo-access-token-service", "kivo-device-auth-account",
                                           stored);
        for (int load = 0; load < 3; ++load) {
            const auto interceptor = interceptorOf("sdk/authenticate");
            interceptor->startLoading();
            client_->awaitFinish();
        }
        std::vector<std::string> found;
        for (const auto& request : backend().requests())
            found.push_back(request.values("x-unique-device-id").at(0));
        return found;
    }

    static void forgetUserToken() {
        store().saveUserJwtToken("");
        settle();
    }

    const std::shared_ptr<RecordingClient> client_ = std::make_shared<RecordingClient>();
};

TEST_F(InterceptorTest, EveryRequestCarriesTheSixIdentityHeaders) {
    auto& plugin = pluginWithUser();
    backend().answer("update-device-token", messageReply("ok"));
    plugin.updateDeviceToken("t");
    output().awaitLine("updateDeviceToken successfully: ");

    const auto requests = backend().requests();
    ASSERT_THAT(requests, SizeIs(3));
    const auto identifier = requests[0].header("x-unique-device-id");
    const std::pair<const char*, std::string> fixed[] = {{"Content-Type", "application/json"},
                                                         {"x-sdk-version", "1.0.0"},
                                                         {"x-platform", "IOS"},
                                                         {"x-package-name", "com.example.tests"},
                                                         {"x-unique-device-id", identifier}};
    for (const auto& request : requests) {
        for (const auto& [name, value] : fixed)
            EXPECT_THAT(request.values(name), ElementsAre(value));
        EXPECT_THAT(request.values("Expect"), IsEmpty());
    }
    EXPECT_THAT(identifier, testing::MatchesRegex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"));
    EXPECT_THAT(requests[0].values("x-session-id"), ElementsAre("")) << "empty, and yet sent";
    EXPECT_THAT(requests[1].values("x-session-id"), ElementsAre("s-1"));
    EXPECT_THAT(bearers(""), ElementsAre("none", "Bearer m-1", "Bearer u-1"));
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
    backend().answer("user/unset", messageReply("ok"));
    plugin.unsetUser();
    output().awaitLine("unsetUser successfully: ");
    EXPECT_THAT(bearers("user/unset"), ElementsAre("Bearer u-2"));
    settle();
    EXPECT_EQ(store().getUserJwtToken(), "u-2");

    forgetUserToken();
    backend().answer("user/authenticate", userReply(""));
    plugin.unsetUser();
    output().awaitLines("unsetUser successfully: ", 2);
    EXPECT_THAT(bearers("user/unset"), ElementsAre("Bearer u-2", "none")) << "renewed to nothing";
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
    EXPECT_THAT(output().lines("Refreshed token found, retrying request. >>> u-"), SizeIs(2));
}

TEST_F(InterceptorTest, AnEmptyDeviceIdentifierIsSentAsItIs) {
    EXPECT_THAT(identifiersFor(""), ElementsAre("", "", ""));
}

TEST_F(InterceptorTest, ADeviceIdentifierThatIsNotTextBlocksTheNewOneOfEveryRequest) {
    const auto identifiers = identifiersFor("\xff\xfe");
    EXPECT_THAT(std::set(identifiers.begin(), identifiers.end()), SizeIs(3));
    EXPECT_THAT(output().lines("Error: "),
                ElementsAre("Error: -25299", "Error: -25299", "Error: -25299"));
}

TEST_F(InterceptorTest, A403IsAnAnswerAndAFailedRenewalIsToldTwiceInDifferentWords) {
    auto& plugin = pluginWithUser();
    backend().answer("user/unset", refusedReply(403));
    plugin.unsetUser();
    EXPECT_THAT(output().awaitLine("unsetUser successfully: "), HasSubstr("success: false"));
    EXPECT_THAT(backend().requests("user/unset"), SizeIs(1));

    backend().answer("user/unset", refusedReply(401));
    backend().answer("user/authenticate", refusedReply(403));
    backend().answer("user/authenticate", jsonReply(403, "[]"));
    plugin.setUser({}, {}, {}, {});
    EXPECT_THAT(output().awaitLines("setUser successfully: ", 2).back(),
                HasSubstr("success: false"));
    EXPECT_THAT(backend().requests("user/authenticate"), SizeIs(2));
    store().saveUserJwtToken("refused");
    settle();
    plugin.unsetUser();
    EXPECT_EQ(output().awaitLine("Failed to refresh JWT token: "),
              "Failed to refresh JWT token: typeMismatch at the top level: expected an object, "
              "found an array");
    EXPECT_THAT(output().lines("Error refreshing token: "),
                ElementsAre("Error refreshing token: The data couldn’t be read because it isn’t in "
                            "the correct format."));
}

TEST_F(InterceptorTest, RelaysDataBeforeTheResponseButForUserAuthentication) {
    pluginWithUser();
    backend().answer("plain", messageReply("ok"));
    const auto plain = interceptorOf("plain");
    plain->startLoading();
    EXPECT_THAT(client_->awaitFinish(), ElementsAre("data", "response", "finish"));
    const auto user = interceptorOf("user/authenticate");
    user->startLoading();
    EXPECT_THAT(client_->awaitFinish(), ElementsAre("response", "data", "finish"));
    backend().answer("cut", closedBeforeReply());
    const auto cut = interceptorOf("cut");
    cut->startLoading();
    EXPECT_THAT(client_->awaitFinish(), ElementsAre("finish")) << "errors are never passed on";
}

TEST_F(InterceptorTest, AnInterceptorStartedAgainAfterAFailedRenewalSendsWithoutAToken) {
    plugin();
    backend().answer("plain", messageReply("ok"));
    const auto interceptor = interceptorOf("plain");
    interceptor->startLoading();
    output().awaitLine("Error during async operations: missingUserParams");
    EXPECT_THAT(backend().requests("plain"), IsEmpty());
    interceptor->startLoading();
    EXPECT_THAT(client_->awaitFinish(), ElementsAre("data", "response", "finish"));
    EXPECT_THAT(bearers("plain"), ElementsAre("none"));
}

}  // namespace

}  // namespace kivo::tests
