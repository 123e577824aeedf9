#include "kivo/core/KivoCore.h"
#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using testing::HasSubstr;

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
}

TEST_F(WorkflowTest, AnSdkReplyIsKeptWhateverItReportsAndOneWithoutDataKeepsTheOldToken) {
    backend().answer("sdk/authenticate",
                     jsonReply(500, R"({"success":false,"message":"no","data":)"
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

}  // namespace

}  // namespace kivo::tests
