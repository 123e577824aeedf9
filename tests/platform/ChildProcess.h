#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>
#include <string>

namespace kivo::tests {

/// A forked copy of the test that runs `body` and ends; failed expectations in it fail the test,
/// too. What it writes to `pipe()[1]` can be read here.
class ChildProcess {
public:
    explicit ChildProcess(const std::function<void(ChildProcess&)>& body) {
        if (::pipe(pipe_.data()) != 0) std::perror("pipe");
        std::fflush(nullptr);
        id_ = fork();
        if (id_ == 0) {
            close(pipe_[0]);
            body(*this);
            std::fflush(nullptr);
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
        close(pipe_[1]);
    }

    ~ChildProcess() {
        close(pipe_[0]);
        if (isOver_) return;
        EXPECT_EQ(wait(), 0) << "in the child process";
    }

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    int writeEnd() const { return pipe_[1]; }

    /// In the child: standard output goes to the parent from now on.
    void sendStandardOutput() const { dup2(pipe_[1], STDOUT_FILENO); }

    /// In the child: tells the parent that it has got so far.
    void signal() const { EXPECT_EQ(write(pipe_[1], "!", 1), 1); }

    /// In the parent: waits for one `signal`; false when the child has ended.
    bool awaitSignal() const {
        char byte = 0;
        return read(pipe_[0], &byte, 1) == 1;
    }

    /// In the parent: all that the child writes until its end.
    std::string readAll() const {
        std::string all;
        std::array<char, 65536> buffer;
        while (const auto count = read(pipe_[0], buffer.data(), buffer.size())) {
            if (count < 0) break;
            all.append(buffer.data(), static_cast<std::size_t>(count));
        }
        return all;
    }

    void kill() {
        ::kill(id_, SIGKILL);
        EXPECT_TRUE(WIFSIGNALED(wait()));
    }

    /// The status it has ended with, as waitpid tells it.
    int wait() {
        int status = -1;
        isOver_ = waitpid(id_, &status, 0) == id_;
        return status;
    }

private:
    std::array<int, 2> pipe_{};
    pid_t id_ = -1;
    bool isOver_ = false;
};

/// Gives up root's rights, which no file mode holds back.
inline void becomeOrdinaryUser() {
    constexpr uid_t nobody = 65534;
    if (geteuid() != 0) return;
    ASSERT_EQ(setresuid(nobody, nobody, nobody), 0);
}

}  // namespace kivo::tests
