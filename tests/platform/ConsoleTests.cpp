#include <gmock/gmock.h>
#include <sys/resource.h>

#include <set>
#include <sstream>

#include "kivo/platform/Console.h"
#include "tests/support/Background.h"

namespace kivo::platform {

namespace {

using tests::ChildProcess;

/// Lines of all lengths, some beyond the stream's buffer and the pipe's atomic size.
std::string testLine(int number) {
    return std::string(static_cast<std::size_t>(number * 37 % 9001), 'x') + std::to_string(number);
}

TEST(Console, WritesWholeLinesAtOnceBehindWhatTheHostHasBuffered) {
    constexpr int each = 400;
    ChildProcess child([] {
        std::printf("host ");
        Console::print("ours");
        tests::onThreads(8, [](int thread) {
            for (int line = 0; line < each; ++line) Console::print(testLine(thread * each + line));
        });
        _exit(0);  // Flushes nothing.
    });
    std::set<std::string> missing = {"host ours"};
    for (int line = 0; line < 8 * each; ++line) missing.insert(testLine(line));
    std::istringstream output(child.read());
    for (std::string line; std::getline(output, line);) EXPECT_TRUE(missing.erase(line) == 1);
    EXPECT_TRUE(missing.empty());
}

/// To a pipe that is closed, or a disk that is full; with the host's own signal pending, or not.
void printInVain(int signal, bool isPending) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    dup2(signal == SIGPIPE ? ends[1] : fileno(std::tmpfile()), STDOUT_FILENO);
    const rlimit full{.rlim_cur = 0, .rlim_max = RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    if (isPending) pthread_sigmask(SIG_BLOCK, &set, nullptr);
    if (isPending) raise(signal);
    for (const std::size_t size : {100'000U, 1U}) Console::print(std::string(size, 'x'));
    sigpending(&set);
    EXPECT_EQ(sigismember(&set, signal), isPending);
    pthread_sigmask(SIG_BLOCK, nullptr, &set);
    EXPECT_EQ(sigismember(&set, signal), isPending) << "blocked";
    EXPECT_EQ(std::ferror(stdout) + std::fflush(stdout), 0) << "something of ours is left behind";
}

TEST(Console, AClosedPipeAndAFullDiskHarmNobody) {
    for (const int signal : {SIGPIPE, SIGXFSZ})
        for (const bool isPending : {false, true})
            ChildProcess([&] { printInVain(signal, isPending); });
}

TEST(Console, HandsLinesToTheHostAndDropsWhatItThrows) {
    std::vector<std::string> taken;
    Console::setOutput([&](auto line) { throw taken.emplace_back(line); });
    Console::print("one");
    Console::print("two\nhalves");
    Console::setOutput([](auto) { Console::setOutput(nullptr); });  // No lock is held around it.
    Console::print("three");
    EXPECT_THAT(taken, testing::ElementsAre("one", "two\nhalves"));
    EXPECT_EQ(ChildProcess([] { Console::print("back again"); }).read(), "back again\n");
}

}  // namespace

}  // namespace kivo::platform
