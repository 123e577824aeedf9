#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <memory>
#include <semaphore>
#include <thread>
#include <vector>

#include "kivo/platform/tasks/Loop.h"
#include "tests/support/Patience.h"

/// What runs beside a test: jobs on the loop, threads of its own, and child processes.
namespace kivo::tests {

using Signal = std::binary_semaphore;

inline platform::Loop& loop() { return platform::Loop::shared(); }

/// Waits until nothing in the background is unfinished.
inline void settle() { EXPECT_TRUE(platform::Loop::waitUntilIdle(patience)); }

/// Waits until the loop has passed what was submitted before.
inline void passTheLoop() {
    Signal passed{0};
    loop().submit([&] { passed.release(); });
    passed.acquire();
}

/// Runs `body(number)` on that many threads at once and waits for all.
template <typename Body>
void onThreads(int count, const Body& body) {
    std::vector<std::thread> threads;
    for (int number = 0; number < count; ++number) threads.emplace_back(body, number);
    for (auto& thread : threads) thread.join();
}

/// A forked copy of the test that runs `body` and ends; a failed expectation in it fails the test,
/// too. What it writes to standard output is read here.
class ChildProcess {
public:
    explicit ChildProcess(const std::function<void()>& body) {
        int ends[2] = {-1, -1};
        EXPECT_EQ(pipe(ends), 0);
        std::fflush(nullptr);
        id_ = fork();
        if (id_ == 0) dup2(ends[1], STDOUT_FILENO);
        close(ends[1]);
        output_.reset(fdopen(ends[0], "r"));
        if (id_ != 0) return;
        output_.reset();
        body();
        std::fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    ~ChildProcess() { end(0); }

    /// In the child: lets the parent read one byte.
    static void signal() { EXPECT_EQ(write(STDOUT_FILENO, "!", 1), 1); }

    /// So many bytes, or all that come until its end.
    std::string read(std::size_t most = std::string::npos) {
        std::string text;
        for (int byte = 0; text.size() < most && (byte = std::getc(output_.get())) != EOF;)
            text += static_cast<char>(byte);
        return text;
    }

    /// Sends it a signal, if not 0, and waits until it has ended so.
    void end(int signal) {
        if (id_ == 0) return;
        kill(id_, signal);
        const auto rest = read();
        int status = -1;
        waitpid(std::exchange(id_, 0), &status, 0);
        EXPECT_EQ(status, signal) << "it printed: " << rest;
    }

private:
    pid_t id_ = 0;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> output_{nullptr, std::fclose};
};

}  // namespace kivo::tests
