#include <barrier>

#include "kivo/sdk/KivoCommunication.h"
#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
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
    void onMessageReceived(const RemoteMessage& message) noexcept override {
        calls.push_back("message of " + std::to_string(message.size()));
    }

    std::vector<std::string> calls;
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
    EXPECT_THAT(output().lines("Kivo already initialized"), SizeIs(racers));
    EXPECT_THAT(backend().requests("sdk/authenticate"), SizeIs(1));
    EXPECT_EQ(backend().last("sdk/authenticate").body, R"({"apiKey":"key"})");
}

TEST_F(SdkTest, WritingTheConfigurationChangesWhatIsReadBackAndNoRequest) {
    auto& plugin = pluginWithUser();
    plugin.setConfig({.apiKey = "changed", .isProduction = true});
    plugin.modifyConfig([&](KivoConfig& config) { config.apiKey += plugin.config().apiKey; });
    EXPECT_EQ(plugin.config().apiKey, "changedchanged");

    backend().answer("update-device-token", messageReply("ok"));
    plugin.updateDeviceToken("t");
    output().awaitLine("updateDeviceToken successfully: ");
    EXPECT_THAT(backend().last("update-device-token").authority, HasSubstr("localhost"));
    auto& communication = dynamic_cast<KivoCommunication&>(plugin);
    EXPECT_EQ(communication.kivoCore()->config().apiKey, "key");
}

TEST_F(SdkTest, AnAssignedCoreReceivesLaterCallsAndIsNotInitialised) {
    auto& communication = dynamic_cast<KivoCommunication&>(plugin());
    const auto core = std::make_shared<RecordingCore>();
    communication.setKivoCore(core);
    communication.setKivoCore(nullptr);
    communication.modifyKivoCore([&](auto& held) {
        EXPECT_EQ(held, core);
        held = nullptr;
    });
    communication.setUser(std::nullopt, "711", std::nullopt, std::nullopt);
    communication.updateDeviceToken("t");
    communication.onMessageReceived({{"notification", {}}});
    EXPECT_THAT(core->calls,
                ElementsAre("setUser 711 none", "updateDeviceToken t", "message of 1"));
}

TEST_F(SdkTest, TwoHundredOperationsAtOnceEachPrintOneOutcome) {
    auto& plugin = pluginWithUser();
    backend().answer("update-device-token", messageReply("ok"));
    constexpr int threads = 8;
    constexpr int operationsEach = 25;
    onThreads(threads, [&](int) {
        for (int i = 0; i < operationsEach; ++i) {
            plugin.updateDeviceToken("t");
            plugin.modifyConfig([](KivoConfig& config) { config.apiKey += 'x'; });
            plugin.setConfig(plugin.config());
        }
    });
    settle();
    EXPECT_THAT(output().lines("updateDeviceToken successfully: "),
                SizeIs(threads * operationsEach));
    EXPECT_THAT(output().lines("Failed"), IsEmpty());
    EXPECT_THAT(backend().requests("update-device-token"), SizeIs(threads * operationsEach));
}

}  // namespace

}  // namespace kivo::tests
