#include "backend/run/Guardian.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string_view>

#include "backend/run/RunFolder.h"

extern "C" {  // glibc 2.36 leaves this out of its header.
#include <sys/pidfd.h>
}

namespace kivo::backend {

namespace {

constexpr int patience = 2000;

/// Keeps nothing of ours open: a reader of our output waits until all of its writers have gone.
void letGoOfEverythingBut(int pipe) {
    if (pipe < 0 || dup2(pipe, STDERR_FILENO + 1) < 0) _exit(1);
    close_range(STDERR_FILENO + 2, ~0U, 0);
    for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
        close(number);
        open("/dev/null", O_RDWR);
    }
}

/// Interrupted reads go on; the end of the pipe is false.
template <typename Value>
bool readWhole(int pipe, Value& value) {
    ssize_t size = 0;
    do size = read(pipe, &value, sizeof value);
    while (size < 0 && errno == EINTR);
    return size == sizeof value;
}

/// A process descriptor never means another process that was given the same number.
void end(int program) {
    pidfd_send_signal(program, SIGTERM, nullptr, 0);
    pollfd ended{.fd = program, .events = POLLIN, .revents = 0};
    if (poll(&ended, 1, patience) == 0) pidfd_send_signal(program, SIGKILL, nullptr, 0);
}

[[noreturn]] void guard(int pipe, const std::filesystem::path& folder) {
    prctl(PR_SET_NAME, "kivo-guardian");
    setsid();
    letGoOfEverythingBut(pipe);
    pid_t id = 0;
    if (readWhole(STDERR_FILENO + 1, id)) {
        const int program = pidfd_open(id, 0);
        char nothing = 0;
        readWhole(STDERR_FILENO + 1, nothing);
        if (program >= 0) end(program);
    }
    removeFolder(folder);
    _exit(0);
}

std::array<int, 2> makePipe() {
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throwLastError("a pipe");
    return ends;
}

FileDescriptor startGuard(const std::filesystem::path& folder) {
    const auto [reading, writing] = makePipe();
    FileDescriptor ours(writing, "a pipe");
    const FileDescriptor theirs(reading, "a pipe");
    const auto id = fork();
    if (id < 0) throwLastError("a process");
    if (id == 0) guard(reading, folder);
    return ours;
}

}  // namespace

Guardian::Guardian(const std::filesystem::path& folder) : pipe_(startGuard(folder)) {}

void Guardian::watch(pid_t program) const {
    pipe_.write(std::string_view(reinterpret_cast<const char*>(&program), sizeof program));
}

}  // namespace kivo::backend
