#include "kivo/core/KivoCore.h"
#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

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
