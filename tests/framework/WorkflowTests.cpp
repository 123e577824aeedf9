#include "kivo/core/KivoCore.h"
#include "kivo/storage/CacheManager.h"
#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

CacheManager& store() { return CacheManager::instance(); }

using WorkflowTest = FrameworkTest;

TEST_F(WorkflowTest, EachOperationMakesItsOneCallAndPrintsItsEnvelope) {
    struct Case {
        std::function<void(KivoCommunicationPlugin&)> call;
        const char* path;
        const char* method;
        const char* body;
        const char* success;
    };
    const std::vector<Case> cases = {
        {[](auto& p) { p.updateDeviceToken("push"); }, "update-device-token", "POST",
         R"({"deviceToken":"push"})", "updateDeviceToken successfully: "},
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

TEST_F(WorkflowTest, ReadsTheMerchantTokenAndSessionOutOfAReplyThatReportsNoSuccess) {
    backend().answer("sdk/authenticate",
                     jsonReply(500, R"({"success":false,"message":"no","data":)"
                                    R"({"merchantToken":"m-9","sessionId":"s-9"}})"));
    plugin();
    EXPECT_THAT(
        output().lines("SDK Initialized successfully: "),
        ElementsAre("SDK Initialized successfully: Optional(Kivo.ApiResponse<Kivo.SdkAuthData>("
                    "success: false, message: \"no\", data: Optional(Kivo.SdkAuthData("
                    "merchantToken: \"m-9\", sessionId: \"s-9\"))))"));
    settle();
    EXPECT_EQ(store().getMerchantJwtTokenTemp(), "m-9");
    EXPECT_EQ(store().getSessionId(), "s-9");
}

TEST_F(WorkflowTest, AnSdkReplyWithoutDataStoresNothingBeyondTheRequest) {
    backend().answer("sdk/authenticate", refusedReply(200));
    plugin();
    settle();
    EXPECT_EQ(store().getMerchantJwtTokenTemp(), "");
    EXPECT_EQ(store().getSdkAuthRequest()->apiKey, "key");
}

TEST_F(WorkflowTest, SettingTheUserKeepsTheTokenAndBlanksTheMerchantToken) {
    pluginWithUser("u-7");
    settle();
    EXPECT_EQ(backend().last("user/authenticate").body,
              R"({"countryCode":"40","email":"ana@example.com","name":"Ana","phone":"711"})");
    EXPECT_EQ(store().getUserJwtToken(), "u-7");
    EXPECT_EQ(store().getMerchantJwtTokenTemp(), "");
    EXPECT_EQ(store().getSessionId(), "s-1");
}

TEST_F(WorkflowTest, AUserReplyWithoutTokenOverwritesAnEarlierGoodOne) {
    auto& plugin = pluginWithUser("u-1");
    backend().answer("user/authenticate", refusedReply(200));
    plugin.setUser(std::nullopt, std::nullopt, "b@example.com", std::nullopt);
    output().awaitLines("setUser successfully: ", 2);
    settle();
    EXPECT_EQ(store().getUserJwtToken(), "");
    EXPECT_EQ(backend().last("user/authenticate").body,
              R"({"countryCode":"","email":"b@example.com","name":"","phone":""})");
    const auto saved = store().getUserAuthRequest();
    EXPECT_EQ(saved->email, "b@example.com");
    EXPECT_EQ(saved->name, std::nullopt) << "kept as absent, though sent as empty text";
}

TEST_F(WorkflowTest, AnAbsentUserIsSentAndSavedAsAPresentEmptyOne) {
    plugin();
    backend().answer("user/authenticate", userReply("u-1"));
    std::make_shared<KivoCore>(KivoConfig{})->setUser(std::nullopt);
    output().awaitLine("setUser successfully: ");
    settle();
    EXPECT_EQ(backend().last("user/authenticate").body,
              R"({"countryCode":"","email":"","name":"","phone":""})");
    EXPECT_TRUE(store().getUserAuthRequest());
}

TEST_F(WorkflowTest, HostileTextsGoOutWholeAndHarmNothing) {
    const std::string odd("\xff\x00\r\n\"/\xe2\x82\xac", 9);
    auto& plugin = pluginWithUser();
    backend().answer("update-device-token", messageReply(odd));
    plugin.updateDeviceToken(odd);
    output().awaitLine("updateDeviceToken successfully: ");
    EXPECT_EQ(backend().last("update-device-token").body,
              "{\"deviceToken\":\"\xef\xbf\xbd\\u0000\\r\\n\\\"\\/\xe2\x82\xac\"}");
}

}  // namespace

}  // namespace kivo::tests
