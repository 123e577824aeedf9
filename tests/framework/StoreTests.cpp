#include "kivo/platform/Keychain.h"
#include "kivo/platform/UserDefaults.h"
#include "kivo/storage/AppKeychainManager.h"
#include "kivo/storage/CacheManager.h"
#include "kivo/storage/SDKError.h"
#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using platform::UserDefaults;
using testing::IsEmpty;

CacheManager& store() { return CacheManager::instance(); }

class StoreTest : public FrameworkTest {
protected:
    static void put(const std::function<void(UserDefaults::Changes&)>& change) {
        UserDefaults::standard().update(change);
    }
};

TEST_F(StoreTest, AFreshInstallReadsAsNothing) {
    EXPECT_FALSE(store().getIsProduction());
    EXPECT_EQ(
        store().getSessionId() + store().getUserJwtToken() + store().getMerchantJwtTokenTemp(), "");
    EXPECT_FALSE(store().getSdkAuthRequest());
    EXPECT_FALSE(store().getUserAuthRequest());
}

TEST_F(StoreTest, WritesAreKeptOnDiskUnderTheirNames) {
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
}

TEST_F(StoreTest, WhatDoesNotDecodeReadsAsNothingAndStays) {
    put([](auto& changes) {
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

TEST_F(StoreTest, SdkErrorsAreEqualByCaseAndDescribeThemselves) {
    const SDKError error(SDKError::tokenFetchError);
    EXPECT_EQ(error, SDKError(SDKError::tokenFetchError));
    EXPECT_NE(error, SDKError(SDKError::missingSdkParams));
    EXPECT_EQ(platform::describe(error), "tokenFetchError");
    EXPECT_EQ(platform::localizedDescription(error),
              "The operation couldn’t be completed. (Kivo.SDKError error 2.)");
}

class DeviceIdentifierTest : public FrameworkTest {
protected:
    static int store(const platform::Data& item) {
        return platform::Keychain::standard().add("kivo-access-token-service",
                                                  "kivo-device-auth-account", item);
    }
};

TEST_F(DeviceIdentifierTest, IsMadeOnceAndKept) {
    const auto made = AppKeychainManager().getDeviceIdentifier();
    EXPECT_EQ(made.size(), 36U);
    EXPECT_EQ(AppKeychainManager().getDeviceIdentifier(), made);
    EXPECT_EQ(store("other"), platform::Keychain::duplicateItem);
    EXPECT_THAT(output().lines(), IsEmpty());
}

TEST_F(DeviceIdentifierTest, AnEarlierItemIsTakenAsItIs) {
    store("any format");
    EXPECT_EQ(AppKeychainManager().getDeviceIdentifier(), "any format");
}

TEST_F(DeviceIdentifierTest, AnItemThatIsNoTextBlocksEveryNewOne) {
    store("\xff\xfe");
    const auto first = AppKeychainManager().getDeviceIdentifier();
    EXPECT_NE(AppKeychainManager().getDeviceIdentifier(), first);
    EXPECT_THAT(output().lines(), testing::ElementsAre("Error: -25299", "Error: -25299"));
}

}  // namespace

}  // namespace kivo::tests
