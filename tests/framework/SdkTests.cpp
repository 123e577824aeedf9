#include <barrier>

#include "kivo/sdk/KivoCommunication.h"
#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using testing::ElementsAre;
using testing::SizeIs;

/// A core that only remembers what was called.
class RecordingCore : public KivoCore {
public:
    RecordingCore() : KivoCore({}) {}

    void initSdk() noexcept override { calls.emplace_back("init"); }
    void setUser(std::optional<UserAuthRequest>) noexcept override { calls.emplace_back("user"); }
    void updateDeviceToken(std::string) noexcept override { calls.emplace_back("token"); }
    void updateNotificationPermission(bool) noexcept override { calls.emplace_back("consent"); }
    void onMessageReceived(const RemoteMessage&) noexcept override { calls.emplace_back("image"); }
    void unsetUser() noexcept override { calls.emplace_back("unset"); }

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
    for (KivoCommunication* called : {&communication, static_cast<KivoCommunication*>(&another)}) {
        called->setUser({}, {}, {}, {});
        called->updateDeviceToken("t");
        called->setNotificationPermission(false);
        called->onMessageReceived({});
        called->unsetUser();
    }
    for (const auto& core : {assigned, another.core})
        EXPECT_THAT(core->calls, ElementsAre("user", "token", "consent", "image", "unset"));
}

}  // namespace

}  // namespace kivo::tests
