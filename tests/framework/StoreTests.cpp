#include "kivo/platform/persistence/UserDefaults.h"
#include "kivo/storage/SDKError.h"
#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using platform::UserDefaults;

using StoreTest = FrameworkTest;

TEST_F(StoreTest, WritesAreKeptOnDiskUnderTheirNames) {
    EXPECT_FALSE(store().getIsProduction() || store().getSdkAuthRequest()) << "a fresh install";
    store().setProduction(true);
    store().saveMerchantJwtTokenTemp({.merchantToken = "m", .sessionId = "s"});
    store().saveUserJwtToken("u");
    store().saveSdkAuthRequest({.apiKey = "k/"});
    store().saveUserAuthRequest(UserAuthRequest{.phone = "711"});
    settle();

    UserDefaults nextLaunch(home().path() / "state/kivo/com.example.tests/defaults.db",
                            [](const auto&) {});
    EXPECT_TRUE(nextLaunch.boolean("isProduction"));
    EXPECT_EQ(nextLaunch.string("sessionId"), "s");
    EXPECT_EQ(nextLaunch.string("UserJwtToken"), "u");
    EXPECT_EQ(nextLaunch.string("MerchantJwtTokenTemp"), "") << "blanked, not removed";
    EXPECT_EQ(nextLaunch.data("SdkAuthRequest"), R"({"apiKey":"k\/"})");
    EXPECT_EQ(nextLaunch.data("UserAuthRequest"), R"({"phone":"711"})");

    store().saveUserAuthRequest(std::nullopt);
    store().saveMerchantJwtTokenTemp({.merchantToken = "m2", .sessionId = ""});
    settle();
    EXPECT_FALSE(store().getUserAuthRequest());
    EXPECT_EQ(store().getSessionId(), "");
    store().saveUserJwtToken("");
    settle();
    EXPECT_EQ(store().getMerchantJwtTokenTemp(), "") << "blanked by an empty user token, too";
    store().saveMerchantJwtTokenTemp({.merchantToken = "", .sessionId = "s3"});
    settle();
    EXPECT_EQ(store().getSessionId(), "s3") << "kept beside an empty merchant token, too";
}

TEST_F(StoreTest, WhatDoesNotDecodeReadsAsNothingAndStays) {
    UserDefaults::standard().update([](auto& changes) {
        changes.setData("SdkAuthRequest", R"({"apiKey":1})");
        changes.setData("UserAuthRequest",
                        R"({"email":null,"name":"Ana","from":"another version"})");
        changes.setBool("sessionId", true);
    });
    EXPECT_FALSE(store().getSdkAuthRequest());
    EXPECT_EQ(UserDefaults::standard().data("SdkAuthRequest"), R"({"apiKey":1})");
    EXPECT_EQ(store().getUserAuthRequest()->name, "Ana");
    EXPECT_EQ(store().getUserAuthRequest()->email, std::nullopt);
    EXPECT_EQ(store().getSessionId(), "");
}

TEST(SDKErrorTest, DescribesItself) {
    const SDKError error(SDKError::tokenFetchError);
    EXPECT_EQ(platform::describe(error), "tokenFetchError");
    EXPECT_EQ(platform::localizedDescription(error),
              "The operation couldn’t be completed. (Kivo.SDKError error 2.)");
}

}  // namespace

}  // namespace kivo::tests
