#include "kivo/core/KivoCore.h"
#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using namespace std::literals;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

using WorkflowTest = FrameworkTest;

TEST_F(WorkflowTest, EachOperationMakesItsOneCallAndPrintsItsEnvelope) {
    using Call = std::function<void(KivoCommunicationPlugin&)>;
    const std::tuple<Call, const char*, std::string, std::string> table[] = {
        {[](auto& plugin) { plugin.updateDeviceToken("push"); }, "POST",
         R"(update-device-token {"deviceToken":"push"})", "updateDeviceToken"},
        {[](auto& plugin) { plugin.setNotificationPermission(true); }, "POST",
         R"(update-notification-consent {"permission":"GRANTED"})", "updateNotificationPermission"},
        {[](auto& plugin) { plugin.setNotificationPermission(false); }, "POST",
         R"(update-notification-consent {"permission":"DENIED"})", "updateNotificationPermission"},
        {[](auto& plugin) { plugin.unsetUser(); }, "PUT", R"(unset {"sessionId":""})", "unsetUser"},
    };
    auto& plugin = pluginWithUser();
    for (const auto& [call, method, request, name] : table) {
        output().take();
        call(plugin);
        const auto printed = output().awaitLine(name + " successfully: ");
        EXPECT_THAT(printed, HasSubstr(R"((success: true, message: "ok", data: Optional(Kivo.)"));
        EXPECT_THAT(printed, HasSubstr(R"((message: "ok"))"));
        const auto sent = backend().requests().back();
        EXPECT_EQ(sent.method, method);
        EXPECT_EQ(sent.target + ' ' + sent.body, "/api/communication/user/" + request);
    }
    settle();
    EXPECT_EQ(store().getUserJwtToken(), "u-1") << "unsetting forgets nothing";
    backend().answer("user/unset", {.headers = {{"Content-Encoding", "gzip"}}, .body = "\x1F"});
    plugin.unsetUser();
    EXPECT_THAT(output().awaitLine("Failed to unsetUser: "), HasSubstr("encoded with gzip"));
}

TEST_F(WorkflowTest, AnSdkReplyIsKeptWhateverItReportsAndOneWithoutDataKeepsTheOldToken) {
    backend().answer("sdk/authenticate",
                     Reply::json(500, R"({"success":false,"message":"no","data":)"
                                      R"({"merchantToken":"m-9","sessionId":"s-9"}})"));
    plugin();
    backend().answer("sdk/authenticate", refusedReply(200));
    std::make_shared<KivoCore>(KivoConfig{.apiKey = "other"})->initSdk();
    output().awaitLines("SDK Initialized successfully: ", 2);
    settle();
    EXPECT_EQ(store().getMerchantJwtTokenTemp() + store().getSessionId(), "m-9s-9");
    EXPECT_EQ(store().getSdkAuthRequest()->apiKey, "other");
}

TEST_F(WorkflowTest, AUserReplyDecidesOnTheTokensAndTheRequestIsSavedAsItWas) {
    auto& plugin = pluginWithUser("u-7");
    settle();
    EXPECT_EQ(backend().last("user/authenticate").body,
              R"({"countryCode":"40","email":"ana@example.com","name":"Ana","phone":"711"})");
    EXPECT_EQ(store().getUserJwtToken(), "u-7");
    EXPECT_EQ(store().getMerchantJwtTokenTemp() + store().getSessionId(), "s-1");

    backend().answer("user/authenticate", refusedReply(200));
    plugin.setUser({}, {}, "b@example.com", {});
    settle();
    EXPECT_EQ(store().getUserJwtToken(), "") << "a reply without token overwrites a good one";
    EXPECT_EQ(backend().last("user/authenticate").body,
              R"({"countryCode":"","email":"b@example.com","name":"","phone":""})");
    EXPECT_EQ(store().getUserAuthRequest()->email, "b@example.com");
    EXPECT_EQ(store().getUserAuthRequest()->name, std::nullopt) << "though sent as empty text";

    std::make_shared<KivoCore>(KivoConfig{})->setUser(std::nullopt);
    settle();
    EXPECT_EQ(backend().last("user/authenticate").body,
              R"({"countryCode":"","email":"","name":"","phone":""})");
    ASSERT_TRUE(store().getUserAuthRequest()) << "an absent user is a present empty one";
    EXPECT_EQ(store().getUserAuthRequest()->email, std::nullopt);
}

TEST_F(WorkflowTest, EachImageIsHitWithNothingOfTheFrameworksAndItsOutcomePrinted) {
    const auto image = [&](const char* name, const Reply& reply) {
        backend().answer(name, reply);
        return backend().url(name);
    };
    const std::string good = "Successfully hit the image URL: ", url = backend().url();
    const std::string missing = "Failed to retrieve image URL";
    const std::string odd = "Failed to hit the image URL, received invalid response";
    const auto elsewhere = redirectReply(302, backend().plainUrl("large"));
    const auto text = image("a.png", {});
    const std::vector<std::pair<std::any, std::string>> table = {
        {image("large", {.body = std::string(20U << 20U, 'x')}), good + url + "large"},
        {image("moved", elsewhere), good + url + "moved"},
        {image("201", {.status = 201}), odd},
        {image("204", {.status = 204}), odd},
        {image("401", refusedReply(401)), odd},
        {"ftp://localhost/a.png"s, "Error hitting image URL: unsupported URL"},
        {"https:///a.png"s, "Error hitting image URL: bad URL"},
        {" https://localhost/"s, "Invalid URL:  https://localhost/"},
        {""s, "Invalid URL: "},
        {text.c_str(), good + text},
        {static_cast<const char*>(nullptr), missing},
        {42, missing},
        {{}, missing}};
    std::vector<std::string> expected;
    for (const auto& [value, line] : table) {
        plugin().onMessageReceived({{"notification", {{"image", value}}}});
        expected.push_back(line);
    }
    plugin().onMessageReceived({{"notification", {}}});
    plugin().onMessageReceived({});
    expected.insert(expected.end(), 2, missing);
    settle();
    EXPECT_THAT(output().lines(), testing::IsSupersetOf(expected));
    const auto hit = backend().last("201");
    EXPECT_EQ(hit.method, "GET");
    EXPECT_THAT(hit.values("User-Agent"), testing::ElementsAre("kivo-tests"));
    EXPECT_THAT(hit.headers, SizeIs(3)) << "beside that, Host and Accept";
}

constexpr std::chrono::seconds limit(30);

/// Loads that nothing ends but the client session's total limit.
class ThirtySecondsTest : public FrameworkTest {
protected:
    /// The limit runs from the operation that was called after `begin`, and does not end it sooner.
    void expectTimeOut(std::string_view failure, std::chrono::steady_clock::time_point begin) {
        EXPECT_THAT(output().awaitLine(failure, limit), HasSubstr("Code=-1001 "));
        EXPECT_GE(std::chrono::steady_clock::now() - begin, limit);
    }
};

TEST_F(ThirtySecondsTest, OperationsThatLackWhatARenewalNeedsSayWhyAtOnceAndFailLater) {
    const auto begin = std::chrono::steady_clock::now();
    const auto core = std::make_shared<KivoCore>(KivoConfig{});
    core->updateDeviceToken("t");
    EXPECT_EQ(output().awaitLine("Error during async operations: "),
              "Error during async operations: missingUserParams");
    core->setUser(std::nullopt);
    EXPECT_EQ(output().awaitLines("Error during async operations: ", 2).back(),
              "Error during async operations: missingSdkParams");
    EXPECT_THAT(output().lines("Failed"), IsEmpty());
    expectTimeOut("Failed to updateDeviceToken: ", begin);
    expectTimeOut("Failed to setUser: ", begin);
    EXPECT_THAT(output().lines("Error refreshing"), IsEmpty());
    EXPECT_THAT(backend().requests(), IsEmpty());
}

TEST_F(ThirtySecondsTest, AUserAuthenticationOutlivesItsLimitAndItsLateAnswerIsIgnored) {
    auto& plugin = pluginWithUser();
    backend().answer("user/authenticate", hanging(refusedReply(401)));
    const auto begin = std::chrono::steady_clock::now();
    plugin.setUser({}, {}, {}, {});
    expectTimeOut("Failed to setUser: ", begin);

    const auto before = backend().requests("sdk/authenticate").size();
    backend().answer("user/authenticate", userReply("late"));
    backend().release();
    EXPECT_TRUE(backend().awaitRequests("sdk/authenticate", before + 1))
        << "it is not stopped: its late 401 still renews once";
    settle();
    EXPECT_THAT(output().lines("setUser successfully: "), SizeIs(1));
}

}  // namespace

}  // namespace kivo::tests
