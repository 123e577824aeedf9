#include "kivo/core/KivoCore.h"
#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

using WorkflowTest = FrameworkTest;

TEST_F(WorkflowTest, EachOperationMakesItsOneCallAndPrintsItsEnvelope) {
    struct Case {
        std::function<void(KivoCommunicationPlugin&)> call;
        const char* path;
        const char* method;
        const char* body;
        const char* success;
    };
    const std::string hostile("\xff\x00\r\n\"/\xe2\x82\xac", 9);
    const std::vector<Case> cases = {
        {[](auto& p) { p.updateDeviceToken("push"); }, "update-device-token", "POST",
         R"({"deviceToken":"push"})", "updateDeviceToken successfully: "},
        {[&](auto& p) { p.updateDeviceToken(hostile); }, "update-device-token", "POST",
         "{\"deviceToken\":\"\xef\xbf\xbd\\u0000\\r\\n\\\"\\/\xe2\x82\xac\"}",
         "updateDeviceToken successfully: "},
        {[](auto& p) { p.setNotificationPermission(true); }, "update-notification-consent", "POST",
         R"({"permission":"GRANTED"})", "updateNotificationPermission successfully: "},
        {[](auto& p) { p.setNotificationPermission(false); }, "update-notification-consent", "POST",
         R"({"permission":"DENIED"})", "updateNotificationPermission successfully: "},
        {[](auto& p) { p.unsetUser(); }, "user/unset", "PUT", R"({"sessionId":""})",
         "unsetUser successfully: "},
    };
    auto& plugin = pluginWithUser();
    for (const auto& [call, path, method, body, success] : cases) {
        backend().answer(path, messageReply("done"));
        const auto before = output().lines(success).size();
        call(plugin);
        const auto printed = output().awaitLines(success, before + 1).back();
        EXPECT_THAT(printed, HasSubstr("success: true, message: \"ok\", data: Optional(Kivo."));
        EXPECT_THAT(printed, HasSubstr("(message: \"done\")"));
        EXPECT_EQ(backend().last(path).method, method);
        EXPECT_EQ(backend().last(path).body, body);
    }
    settle();
    EXPECT_EQ(store().getUserJwtToken(), "u-1") << "unsetting forgets nothing";
}

TEST_F(WorkflowTest, AnSdkReplyIsReadForItsDataWhateverElseItReports) {
    backend().answer("sdk/authenticate",
                     jsonReply(500, R"({"success":false,"message":"no","data":)"
                                    R"({"merchantToken":"m-9","sessionId":"s-9"}})"));
    backend().answer("sdk/authenticate", refusedReply(200));
    plugin();
    std::make_shared<KivoCore>(KivoConfig{.apiKey = "other"})->initSdk();
    EXPECT_THAT(
        output().awaitLines("SDK Initialized successfully: ", 2),
        ElementsAre("SDK Initialized successfully: Optional(Kivo.ApiResponse<Kivo.SdkAuthData>("
                    "success: false, message: \"no\", data: Optional(Kivo.SdkAuthData("
                    "merchantToken: \"m-9\", sessionId: \"s-9\"))))",
                    testing::EndsWith("data: nil))")));
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
    EXPECT_EQ(store().getMerchantJwtTokenTemp(), "");
    EXPECT_EQ(store().getSessionId(), "s-1");

    backend().answer("user/authenticate", refusedReply(200));
    plugin.setUser(std::nullopt, std::nullopt, "b@example.com", std::nullopt);
    output().awaitLines("setUser successfully: ", 2);
    settle();
    EXPECT_EQ(store().getUserJwtToken(), "") << "a reply without token overwrites a good one";
    EXPECT_EQ(backend().last("user/authenticate").body,
              R"({"countryCode":"","email":"b@example.com","name":"","phone":""})");
    EXPECT_EQ(store().getUserAuthRequest()->email, "b@example.com");
    EXPECT_EQ(store().getUserAuthRequest()->name, std::nullopt) << "though sent as empty text";

    std::make_shared<KivoCore>(KivoConfig{})->setUser(std::nullopt);
    output().awaitLines("setUser successfully: ", 3);
    settle();
    EXPECT_EQ(backend().last("user/authenticate").body,
              R"({"countryCode":"","email":"","name":"","phone":""})");
    ASSERT_TRUE(store().getUserAuthRequest()) << "an absent user is a present empty one";
    EXPECT_EQ(store().getUserAuthRequest()->email, std::nullopt);
}

}  // namespace

}  // namespace kivo::tests
