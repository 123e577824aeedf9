#include <barrier>
#include <thread>
#include <vector>

#include "kivo/sdk/KivoCommunication.h"
#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

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
    void updateNotificationPermission(bool granted) noexcept override {
        calls.emplace_back(granted ? "permission yes" : "permission no");
    }
    void onMessageReceived(const RemoteMessage& message) noexcept override {
        calls.push_back("message of " + std::to_string(message.size()));
    }
    void unsetUser() noexcept override { calls.emplace_back("unsetUser"); }

    std::vector<std::string> calls;
};

using SdkTest = FrameworkTest;

TEST_F(SdkTest, TheFirstInitialisationAuthenticatesAndLaterOnesChangeNothing) {
    EXPECT_EQ(KivoSDK::instance(), nullptr);
    auto& first = plugin();
    EXPECT_EQ(backend().last("sdk/authenticate").body, R"({"apiKey":"key"})");

    const auto second = KivoSDK::initialise({.apiKey = "other", .isProduction = true});

    EXPECT_EQ(second.get(), &first);
    EXPECT_EQ(KivoSDK::instance(), second);
    EXPECT_EQ(first.config().apiKey, "key");
    EXPECT_FALSE(first.config().isProduction);
    EXPECT_THAT(output().lines("Kivo already initialized"), SizeIs(1));
    settle();
    EXPECT_THAT(backend().requests("sdk/authenticate"), SizeIs(1));
}

TEST_F(SdkTest, RacingFirstInitialisationsMakeOnePlugin) {
    constexpr int threads = 8;
    backend().answer("sdk/authenticate", merchantReply("m-1", "s-1"));
    std::barrier start(threads);
    std::vector<std::shared_ptr<KivoCommunicationPlugin>> plugins(threads);
    {
        std::vector<std::jthread> racers;
        for (auto& plugin : plugins)
            racers.emplace_back([&] {
                start.arrive_and_wait();
                plugin = KivoSDK::initialise({.apiKey = "key"});
            });
    }

    output().awaitLine("SDK Initialized successfully: ");
    settle();
    EXPECT_THAT(plugins, testing::Each(KivoSDK::instance()));
    EXPECT_THAT(output().lines("Kivo already initialized"), SizeIs(threads - 1));
    EXPECT_THAT(backend().requests("sdk/authenticate"), SizeIs(1));
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

    KivoCommunicationPlugin& plugin = communication;
    plugin.setUser(std::nullopt, "711", std::nullopt, std::nullopt);
    plugin.updateDeviceToken("t");
    plugin.setNotificationPermission(false);
    plugin.onMessageReceived({{"notification", {}}});
    plugin.unsetUser();

    EXPECT_THAT(core->calls, testing::ElementsAre("setUser 711 none", "updateDeviceToken t",
                                                  "permission no", "message of 1", "unsetUser"));
}

TEST_F(SdkTest, TwoHundredOperationsAtOnceEachPrintOneOutcome) {
    auto& plugin = pluginWithUser();
    backend().answer("update-device-token", messageReply("ok"));
    constexpr int threads = 8;
    constexpr int operationsEach = 25;
    {
        std::vector<std::jthread> callers;
        for (int caller = 0; caller < threads; ++caller)
            callers.emplace_back([&plugin] {
                for (int i = 0; i < operationsEach; ++i) {
                    plugin.updateDeviceToken("t");
                    plugin.modifyConfig([](KivoConfig& config) { config.apiKey += 'x'; });
                    plugin.setConfig(plugin.config());
                }
            });
    }

    output().awaitLines("updateDeviceToken successfully: ", threads * operationsEach);
    settle();
    EXPECT_THAT(output().lines("updateDeviceToken successfully: "),
                SizeIs(threads * operationsEach));
    EXPECT_THAT(output().lines("Failed"), IsEmpty());
    EXPECT_THAT(backend().requests("update-device-token"), SizeIs(threads * operationsEach));
}

class ProductionTest : public FrameworkTest {
protected:
    ProductionTest() { isProduction = true; }
};

TEST_F(ProductionTest, TheVeryFirstRequestReachesTheProductionHost) {
    plugin();
    EXPECT_THAT(backend().requests(), SizeIs(1));
    EXPECT_EQ(backend().last("sdk/authenticate").authority, "api.kivo.example:443");
}

}  // namespace

}  // namespace kivo::tests
