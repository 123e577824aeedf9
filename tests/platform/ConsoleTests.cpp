#include "kivo/platform/Console.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <deque>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "kivo/platform/Process.h"
#include "tests/platform/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

namespace kivo::platform {
namespace {

using tests::ChildProcess;

constexpr int threadCount = 8;
constexpr int linesPerThread = 400;

/// Lines of all lengths, some beyond the stream's buffer and the pipe's atomic size.
std::string testLine(int thread, int number) {
    return std::to_string(thread) + ":" + std::to_string(number) + ":" +
           std::string(static_cast<std::size_t>(number * 37 % 9000),
                       static_cast<char>('a' + thread));
}

std::multiset<std::string> linesOf(const std::string& text) {
    std::multiset<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.insert(line);
    return lines;
}

TEST(Console, NeverMixesLinesOfDifferentThreads) {
    const ChildProcess child([](const ChildProcess& self) {
        self.sendStandardOutput();
        std::deque<std::jthread> threads;
        for (int thread = 0; thread < threadCount; ++thread)
            threads.emplace_back([thread] {
                for (int number = 0; number < linesPerThread; ++number)
                    Console::print(testLine(thread, number));
            });
    });
    std::multiset<std::string> expected;
    for (int thread = 0; thread < threadCount; ++thread)
        for (int number = 0; number < linesPerThread; ++number)
            expected.insert(testLine(thread, number));
    EXPECT_TRUE(linesOf(child.readAll()) == expected);
}

TEST(Console, FlushesEachLineBehindWhatTheHostHasBuffered) {
    const ChildProcess child([](const ChildProcess& self) {
        self.sendStandardOutput();
        std::printf("host ");
        Console::print("ours");
        _exit(0);  // Flushes nothing.
    });
    EXPECT_EQ(child.readAll(), "host ours\n");
}

sigset_t pendingSignals() {
    sigset_t pending;
    sigpending(&pending);
    return pending;
}

bool isBlocked(int signal) {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

void breakStandardOutput() {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
}

void expectUnchanged(int signal) {
    const sigset_t pending = pendingSignals();
    EXPECT_EQ(sigismember(&pending, signal), 0);
    EXPECT_FALSE(isBlocked(signal));
    struct sigaction action{};
    sigaction(signal, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_DFL)
        << "a signal that came through would have ended the process";
}

void expectStreamAsBefore() {
    EXPECT_EQ(std::ferror(stdout), 0);
    EXPECT_EQ(std::fflush(stdout), 0) << "something of ours was still buffered";
}

TEST(Console, SurvivesABrokenPipe) {
    const ChildProcess child([](const ChildProcess&) {
        signal(SIGPIPE, SIG_DFL);
        breakStandardOutput();
        Console::print("lost");
        Console::print(std::string(100'000, 'x'));
        expectUnchanged(SIGPIPE);
        expectStreamAsBefore();
    });
}

TEST(Console, SurvivesAFileSizeLimit) {
    const tests::TemporaryDirectory directory;
    const ChildProcess child([&](const ChildProcess&) {
        signal(SIGXFSZ, SIG_DFL);
        const auto file = directory.path() / "out";
        const int opened = open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        ASSERT_GE(opened, 0);
        dup2(opened, STDOUT_FILENO);
        const rlimit none{.rlim_cur = 0, .rlim_max = RLIM_INFINITY};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
        Console::print("lost");
        expectUnchanged(SIGXFSZ);
        expectStreamAsBefore();
    });
}

TEST(Console, LeavesTheHostsPendingSignalsAlone) {
    const ChildProcess child([](const ChildProcess&) {
        sigset_t broken;
        sigemptyset(&broken);
        sigaddset(&broken, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &broken, nullptr);
        raise(SIGPIPE);
        breakStandardOutput();
        Console::print("lost");
        const sigset_t pending = pendingSignals();
        EXPECT_EQ(sigismember(&pending, SIGPIPE), 1);
        EXPECT_TRUE(isBlocked(SIGPIPE));
    });
}

TEST(Console, HandsLinesToTheHostAndDropsWhatItThrows) {
    std::vector<std::string> taken;
    Console::setOutput([&](std::string_view line) {
        taken.emplace_back(line);
        throw std::runtime_error("the host's own fault");
    });
    Console::print("one");
    Console::print("two\nhalves");
    Console::setOutput(
        [&](std::string_view) { Console::setOutput(nullptr); });  // No lock is held around it.
    Console::print("three");
    EXPECT_THAT(taken, testing::ElementsAre("one", "two\nhalves"));

    const ChildProcess child([](const ChildProcess& self) {
        self.sendStandardOutput();
        Console::print("back again");
    });
    EXPECT_EQ(child.readAll(), "back again\n");
}

TEST(Console, IsSilentInAForkedChildOfAProcessThatUsedThePlatform) {
    Process::prepare();
    const ChildProcess child([](const ChildProcess& self) {
        self.sendStandardOutput();
        Console::print("twice");
    });
    EXPECT_EQ(child.readAll(), "");
}

}  // namespace
}  // namespace kivo::platform
