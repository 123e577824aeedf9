#include <csignal>
#include <cstdlib>

#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;

/// Runs the test host in a process of its own, with this test's home and backend.
class ProcessTest : public FrameworkTest {
protected:
    struct Ended {
        int status;  ///< As waitpid() reports it: 0 for a normal exit.
        std::string output;
        std::string errors;
    };

    Ended runHost(const std::string& commands) {
        const auto output = home().path() / "output", errors = home().path() / "errors";
        const auto line = "exec " KIVO_TEST_HOST " " + commands + " >" + output.string() + " 2>" +
                          errors.string();
        const int status = std::system(line.c_str());
        return {status, contentOf(output), contentOf(errors)};
    }
};

TEST_F(ProcessTest, StateOutlivesTheProcess) {
    runHost("name init await user await");
    const auto second = runHost("name init token await");
    EXPECT_THAT(second.output, HasSubstr("updateDeviceToken successfully: "));
    EXPECT_EQ(backend().last("update-device-token").header("Authorization"), "Bearer u-1");
    EXPECT_EQ(backend().last("update-device-token").header("x-unique-device-id"),
              backend().requests().front().header("x-unique-device-id"));
}

TEST_F(ProcessTest, AFreshStartInProductionAlwaysAsksTheProductionHostFirst) {
    constexpr int starts = 25;
    for (int start = 0; start < starts; ++start) {
        std::filesystem::remove_all(home().path() / "state");
        runHost(start % 2 == 0 ? "name init-production await" : "name ask-production await");
    }
    EXPECT_THAT(backend().requests(), SizeIs(starts));
    for (const auto& request : backend().requests())
        EXPECT_EQ(request.authority, "api.kivo.example:443");
}

TEST_F(ProcessTest, AForkedChildDoesNothingAndItsParentGoesOnAndExitsAmidOperations) {
    backend().answer("user/unset", hanging());
    const auto ended = runHost("name init user 20:token fork await token await 40:unset exit");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.errors, "");
    EXPECT_THAT(ended.output, HasSubstr("child ended with 0"));
    EXPECT_THAT(ended.output, Not(HasSubstr("already initialized")));
    EXPECT_THAT(backend().requests("update-device-token"), SizeIs(21));
    EXPECT_THAT(backend().requests("update-notification-consent"), IsEmpty());
}

TEST_F(ProcessTest, AChildForkedBetweenASinkAndTheFirstCallDoesNothingEither) {
    EXPECT_THAT(runHost("name sink fork everything await").output, HasSubstr("child ended with 0"));
    EXPECT_THAT(backend().requests("user/unset"), SizeIs(1));
}

TEST_F(ProcessTest, ACancelledThreadLeavesItsCallFirst) {
    const auto ended = runHost("name cancel-threads");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(backend().requests("user/unset").size(), 50);
}

TEST_F(ProcessTest, AProxyWithoutAnAddressIsAHostThatCannotBeFound) {
    const std::string refusedWithoutAskingAnyone(64, 'x');
    setenv("https_proxy", ("http://" + refusedWithoutAskingAnyone + ":1").c_str(), 1);
    setenv("HOST_IMAGE", "https://cdn.example/a.png", 1);
    EXPECT_THAT(runHost("name init image await").output,
                HasSubstr("Error hitting image URL: A server with the specified hostname could not "
                          "be found.\n"));
}

TEST_F(ProcessTest, AHostWithoutAnIdentifierIsStopped) {
    const auto nameless = runHost("init await");
    EXPECT_EQ(WTERMSIG(nameless.status), SIGABRT);
    EXPECT_THAT(nameless.errors,
                MatchesRegex("Fatal error: Unexpectedly found nil while unwrapping an Optional "
                             "value\n[^\n]*KIVO_BUNDLE_IDENTIFIER[^\n]*\n"));
}

}  // namespace

}  // namespace kivo::tests
