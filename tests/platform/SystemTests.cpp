#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <cwchar>
#include <iostream>
#include <map>
#include <set>
#include <sstream>

#include "kivo/platform/Console.h"
#include "kivo/platform/system/ApplicationFolder.h"
#include "kivo/platform/system/Environment.h"
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
        tests::loop();
        std::printf("host ");
        std::cout << "and stream ";
        Console::print("ours");
        tests::settle();
        tests::onThreads(8, [](int thread) {
            for (int line = 0; line < each; ++line) Console::print(testLine(thread * each + line));
        });
        tests::settle();
        _exit(0);  // Flushes nothing.
    });
    std::set<std::string> missing = {"host and stream ours"};
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

TEST(Console, HandsLinesToTheHostOneByOneAndDropsWhatItThrows) {
    ChildProcess child([] {
        tests::loop();
        std::vector<std::string> taken;
        Console::setOutput([&](auto line) {
            // It is called anew, not within itself, for what it prints.
            if (line == "one") Console::print("three");
            throw taken.emplace_back(line);
        });
        Console::print("one");
        Console::print("two\nhalves");
        tests::settle();
        EXPECT_THAT(taken, testing::UnorderedElementsAre("one", "two\nhalves", "three"));
        Console::setOutput([](auto) { Console::setOutput(nullptr); });  // No lock is held.
        Console::print("four");
        tests::settle();
        Console::print("back again");
        tests::settle();
    });
    EXPECT_EQ(child.read(), "back again\n");
}

/// Prints half a mebibyte into a pipe of 64 KB that nobody reads yet, then into somebody's file.
void printIntoAFullPipe() {
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe(ends), 0);
    dup2(ends[1], STDOUT_FILENO);
    ASSERT_NE(std::freopen("/dev/fd/1", "w", stdout), nullptr);  // It has no orientation now.
    tests::loop();
    for (int lines = 0; lines < 500; ++lines) Console::print(std::string(1000, 'x'));
    Console::print(testLine(200));
    tests::passTheLoop();
    EXPECT_FALSE(tests::loop().waitUntilIdle(std::chrono::milliseconds(50)));
    std::string read(500 * 1001 + testLine(200).size() + 1, ' ');
    for (std::size_t at = 0; at < read.size();)
        at += static_cast<std::size_t>(::read(ends[0], &read[at], read.size() - at));
    EXPECT_EQ(std::count(read.begin(), read.end(), '\n'), 501);
    EXPECT_TRUE(read.ends_with("x\n" + testLine(200) + "\n"));
    tests::settle();
    EXPECT_EQ(std::fwide(stdout, 0), 0) << "the stream's orientation stays the host's";
    close(STDOUT_FILENO);
    const int others = memfd_create("others", 0);
    ASSERT_EQ(others, STDOUT_FILENO);
    Console::print("not for them");
    tests::settle();
    EXPECT_EQ(lseek(others, 0, SEEK_END), 0);
}

TEST(Console, AFullPipeAndASinkThatStandsStillHoldUpTheirLinesAlone) {
    const ChildProcess child([] {
        tests::Signal goOn{0};
        Console::setOutput([&](auto) { goOn.acquire(); });
        Console::print("held");
        Console::setOutput(nullptr);
        tests::Signal committed{0};
        tests::loop().submit([&] { committed.release(); }, Work::Kind::commit);
        committed.acquire();
        goOn.release();
    });
    const ChildProcess another(printIntoAFullPipe);
}

Environment with(const std::map<std::string, std::string>& variables) {
    clearenv();
    for (const auto& [name, value] : variables) setenv(name.c_str(), value.c_str(), 1);
    return Environment::read();
}

TEST(Environment, FindsDirectoriesProxiesAndTrustStoreOnce) {
    const auto moved = with({{"XDG_STATE_HOME", "/s"}, {"XDG_DATA_HOME", "/d"}});
    EXPECT_EQ(moved.stateDirectory, "/s");
    EXPECT_EQ(moved.dataDirectory, "/d");
    const auto relative = with({{"HOME", "/h"}, {"XDG_STATE_HOME", "s"}, {"XDG_DATA_HOME", ""}});
    EXPECT_EQ(relative.stateDirectory, "/h/.local/state");
    EXPECT_EQ(relative.dataDirectory, "/h/.local/share");
    EXPECT_EQ(with({{"HOME", "h"}}).dataDirectory, std::nullopt);

    const auto lower = with({{"https_proxy", "s"}, {"HTTPS_PROXY", "S"}, {"ALL_PROXY", "A"}});
    EXPECT_EQ(lower.proxyFor("https") + lower.proxyFor("http"), "sA");
    const auto upper = with({{"HTTP_PROXY", "h"}, {"https_proxy", ""}, {"HTTPS_PROXY", "S"}});
    EXPECT_EQ(upper.proxyFor("https") + upper.proxyFor("http"), "S") << "Proxy: is a header, too";
    EXPECT_EQ(with({{"SSL_CERT_FILE", ""}}).sslCertFile, std::nullopt);

    const auto home = Environment::current().home;
    EXPECT_NE(with({{"HOME", "/changed/by/the/host"}}).home, home);
    EXPECT_EQ(Environment::current().home, home);
}

TEST(ApplicationFolder, IsTheIdentifierOnlyWhereThatIsSafe) {
    const auto tooLong = "com.example.App-1_" + std::string(183, '2');
    EXPECT_EQ(folderName(tooLong.substr(1)), tooLong.substr(1));
    for (const std::string unsafe :
         {"", ".", "..", ".hidden", "a b", "ü", "a\n", "id\\", tooLong.c_str()})
        EXPECT_TRUE(folderName(unsafe).starts_with("id-")) << unsafe;
    EXPECT_EQ(folderName("a/b"), "id-e620c3190468cf614c0f7f1b42f0fe6c") << "state would be lost";
}

}  // namespace

}  // namespace kivo::platform
