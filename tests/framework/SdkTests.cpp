#include <barrier>

#include "kivo/sdk/KivoCommunication.h"
#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// A core that only remembers what it was called with.
class RecordingCore : public KivoCore {
public:
    RecordingCore() : KivoCore({}) {}

    void initSdk() noexcept override { calls.emplace_back("initSdk"); }
    void setUser(std::optional<UserAuthRequest> request) noexcept override {
        calls.push_back("setUser " + request->phone.value_or("none") +
                        request->name.value_or(" none"));
    }
    void updateDeviceToken(std::string token) noexcept override {
        calls.push_back("updateDeviceToken " + token);
    }
    void updateNotificationPermission(bool hasPermission) noexcept override {
        calls.emplace_back(hasPermission ? "granted" : "denied");
    }
    void onMessageReceived(const RemoteMessage& message) noexcept override {
        calls.push_back("message of " + std::to_string(message.size()));
    }
    void unsetUser() noexcept override { calls.emplace_back("unsetUser"); }

    std::vector<std::string> calls;
};

/// A plugin that another core stands behind, as its getter alone says.
class PluginWithAnotherCore : public KivoCommunication {
public:
    using KivoCommunication::KivoCommunication;
    std::shared_ptr<KivoCore> kivoCore() const override { return core; }

    const std::shared_ptr<RecordingCore> core = std::make_shared<RecordingCore>();
};

using SdkTest = FrameworkTest;

TEST_F(SdkTest, RacingInitialisationsMakeOnePluginAndLaterOnesChangeNothing) {
    EXPECT_EQ(KivoSDK::instance(), nullptr);
    backend().answer("sdk/authenticate", merchantReply("m-1", "s-1"));
    constexpr int racers = 8;
    std::barrier start(racers);
    std::vector<std::shared_ptr<KivoCommunicationPlugin>> plugins(racers);
    onThreads(racers, [&](std::size_t racer) {
        start.arrive_and_wait();
        plugins[racer] = KivoSDK::initialise({.apiKey = "key"});
    });
    output().awaitLine("SDK Initialized successfully: ");
    plugins.push_back(KivoSDK::initialise({.apiKey = "other", .isProduction = true}));
    settle();

    ASSERT_NE(KivoSDK::instance(), nullptr);
    EXPECT_THAT(plugins, testing::Each(KivoSDK::instance()));
    EXPECT_EQ(KivoSDK::instance()->config().apiKey, "key");
    EXPECT_FALSE(KivoSDK::instance()->config().isProduction);
    EXPECT_FALSE(store().getIsProduction());
    EXPECT_THAT(output().lines("Kivo already initialized"), SizeIs(racers));
    EXPECT_THAT(backend().requests("sdk/authenticate"), SizeIs(1));
    EXPECT_EQ(backend().last("sdk/authenticate").body, R"({"apiKey":"key"})");
}

TEST_F(SdkTest, TheCoreMadeLastChoosesTheBackendAndNoWrittenConfigurationDoes) {
    auto& plugin = pluginWithUser();
    backend().answer("user/unset", messageReply("ok"));
    for (const bool isProduction : {true, false}) {
        KivoCore core({.apiKey = "made", .isProduction = isProduction});
        core.setConfig({.apiKey = "changed", .isProduction = !isProduction});
        plugin.setConfig({.apiKey = "changed", .isProduction = !isProduction});
        settle();
        plugin.unsetUser();
        settle();
        EXPECT_EQ(backend().last("user/unset").authority,
                  isProduction ? "api.kivo.example:443" : "localhost:8443");
    }
    plugin.modifyConfig([&](KivoConfig& config) { config.apiKey += plugin.config().apiKey; });
    EXPECT_EQ(plugin.config().apiKey, "changedchanged");
    EXPECT_EQ(dynamic_cast<KivoCommunication&>(plugin).kivoCore()->config().apiKey, "key");
}

TEST_F(SdkTest, TheCoreThatTheGetterNamesReceivesEveryCallAndIsNotInitialised) {
    auto& communication = dynamic_cast<KivoCommunication&>(plugin());
    const auto assigned = std::make_shared<RecordingCore>();
    communication.setKivoCore(assigned);
    communication.setKivoCore(nullptr);
    communication.modifyKivoCore([&](auto& held) {
        EXPECT_EQ(held, assigned);
        held = nullptr;
    });
    PluginWithAnotherCore another{KivoConfig{}};
    for (KivoCommunication* called :
         std::initializer_list<KivoCommunication*>{&communication, &another}) {
        called->setUser(std::nullopt, "711", std::nullopt, std::nullopt);
        called->updateDeviceToken("t");
        called->setNotificationPermission(false);
        called->onMessageReceived({{"notification", {}}});
        called->unsetUser();
    }
    for (const auto& core : {assigned, another.core})
        EXPECT_THAT(core->calls, ElementsAre("setUser 711 none", "updateDeviceToken t", "denied",
                                             "message of 1", "unsetUser"));
}

TEST_F(SdkTest, TwoHundredOperationsAtOnceEachPrintOneOutcome) {
    auto& plugin = pluginWithUser();
    backend().answer("update-device-token", messageReply("ok"));
    onThreads(8, [&](int) {
        for (int i = 0; i < 25; ++i) {
            plugin.updateDeviceToken("t");
            plugin.modifyConfig([](KivoConfig& config) { config.apiKey += 'x'; });
            plugin.setConfig(plugin.config());
        }
    });
    settle();
    EXPECT_THAT(output().lines("updateDeviceToken successfully: "), SizeIs(200));
    EXPECT_THAT(output().lines("Failed"), IsEmpty());
    EXPECT_THAT(backend().requests("update-device-token"), SizeIs(200));
}

}  // namespace

}  // namespace kivo::tests
