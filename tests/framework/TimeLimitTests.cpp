#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* timedOut = "Code=-1001 \"The request timed out.\"";

/// Loads that nobody ends but the client session's total limit.
using ThirtySecondsTest = FrameworkTest;
constexpr std::chrono::seconds limit(30);

TEST_F(ThirtySecondsTest, AnOperationWithoutAnyUserSaysWhyAtOnceAndFailsLater) {
    plugin().updateDeviceToken("t");
    EXPECT_EQ(output().awaitLine("Error during async operations: "),
              "Error during async operations: missingUserParams");
    EXPECT_THAT(output().lines("Failed"), IsEmpty());
    EXPECT_THAT(output().awaitLine("Failed to updateDeviceToken: ", limit), HasSubstr(timedOut));
    EXPECT_THAT(output().lines("Error refreshing"), IsEmpty());
    EXPECT_THAT(backend().requests(), SizeIs(1)) << "only the SDK authentication";
}

TEST_F(ThirtySecondsTest, AUserAuthenticationOutlivesItsLimitAndItsLateAnswerIsIgnored) {
    auto& plugin = pluginWithUser();
    backend().answer("user/authenticate", hanging(refusedReply(401)));
    plugin.setUser({}, {}, {}, {});
    EXPECT_THAT(output().awaitLine("Failed to setUser: ", limit), HasSubstr(timedOut));

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
