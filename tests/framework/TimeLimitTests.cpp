#include <chrono>

#include "kivo/storage/CacheManager.h"
#include "tests/framework/FrameworkTest.h"
#include "tests/support/Patience.h"

namespace kivo::tests {

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* timedOut = "Code=-1001 \"The request timed out.\"";

/// Loads that nobody ends but the client session's total limit.
class ThirtySecondsTest : public FrameworkTest {
protected:
    std::string awaitLineAfterTheLimit(std::string_view start) {
        return output().awaitLine(start, std::chrono::seconds(30));
    }
};

TEST_F(ThirtySecondsTest, AnOperationWithoutAnyUserSaysWhyAtOnceAndFailsLater) {
    plugin().updateDeviceToken("t");
    EXPECT_EQ(output().awaitLine("Error during async operations: "),
              "Error during async operations: missingUserParams");
    EXPECT_THAT(output().lines("Failed"), IsEmpty());
    EXPECT_THAT(awaitLineAfterTheLimit("Failed to updateDeviceToken: "), HasSubstr(timedOut));
    EXPECT_THAT(output().lines("Error refreshing"), IsEmpty());
    EXPECT_THAT(backend().requests(), SizeIs(1)) << "only the SDK authentication";
}

TEST_F(ThirtySecondsTest, AnEndless401LoopEndsWithItsLoad) {
    auto& plugin = pluginWithUser();
    const auto pause = std::chrono::milliseconds(200);
    backend().answer("user/unset", delayed(pause, refusedReply(401)));
    plugin.unsetUser();
    EXPECT_THAT(awaitLineAfterTheLimit("Failed to unsetUser: "), HasSubstr(timedOut));
    const auto rounds = backend().requests("user/unset").size();
    EXPECT_GT(rounds, 2U);
    settle();
    EXPECT_LE(backend().requests("user/unset").size(), rounds + 1) << "one stray resend at most";
}

TEST_F(ThirtySecondsTest, AHangingServerEndsInTheTotalLimitAndALateAnswerIsIgnored) {
    auto& plugin = pluginWithUser();
    backend().answer("user/unset", hanging());
    backend().answer("user/authenticate", hanging(refusedReply(401)));
    plugin.unsetUser();
    plugin.setUser({}, {}, {}, {});
    EXPECT_THAT(awaitLineAfterTheLimit("Failed to unsetUser: "), HasSubstr(timedOut));
    EXPECT_THAT(output().awaitLine("Failed to setUser: "), HasSubstr(timedOut));

    const auto before = backend().requests("sdk/authenticate").size();
    backend().answer("user/authenticate", userReply("late"));
    backend().release();
    EXPECT_TRUE(backend().awaitRequests("sdk/authenticate", before + 1, patience))
        << "user authentication is not stopped: its late 401 still renews once";
    settle();
    EXPECT_THAT(output().lines("setUser successfully: "), SizeIs(1))
        << "its late answer is ignored";
}

}  // namespace

}  // namespace kivo::tests
