#include "tests/backend/KivoDev.h"

#include "tests/support/Patience.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <utility>

namespace kivo::tests {
namespace {

constexpr int readyDescriptor = 3;

int patienceMilliseconds() { return static_cast<int>(std::chrono::milliseconds(patience).count()); }

[[noreturn]] void become(const std::vector<std::string>& arguments, int output, int ready) {
    ::dup2(output, STDOUT_FILENO);
    ::dup2(output, STDERR_FILENO);
    // Where it has its number already, the copy would still close on exec.
    if (ready == readyDescriptor) ::fcntl(ready, F_SETFD, 0);
    ::dup2(ready, readyDescriptor);
    std::vector<char*> pointers{const_cast<char*>(KIVO_DEV_PROGRAM)};
    for (const auto& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    ::execv(KIVO_DEV_PROGRAM, pointers.data());
    ::_exit(127);
}

}  // namespace

KivoDev::KivoDev(const std::vector<std::string>& arguments, const std::filesystem::path& dataHome,
                 int output) {
    std::array<int, 2> ready{};
    if (::pipe2(ready.data(), O_CLOEXEC) != 0) std::abort();
    ::setenv("XDG_DATA_HOME", dataHome.c_str(), 1);
    process_ = ::fork();
    if (process_ == 0) become(arguments, output, ready[1]);
    ::close(ready[1]);
    ready_ = ready[0];
}

KivoDev::~KivoDev() {
    if (process_ > 0) {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }
    ::close(ready_);
}

std::string KivoDev::readyText() const {
    std::string text;
    std::array<char, 512> bytes{};
    pollfd readable{.fd = ready_, .events = POLLIN, .revents = 0};
    while (::poll(&readable, 1, patienceMilliseconds()) == 1) {
        const auto size = ::read(ready_, bytes.data(), bytes.size());
        if (size <= 0) break;
        text.append(bytes.data(), static_cast<std::size_t>(size));
    }
    return text;
}

void KivoDev::signal(int number) const { ::kill(process_, number); }

int KivoDev::wait() {
    const auto descriptor = static_cast<int>(::syscall(SYS_pidfd_open, process_, 0));
    pollfd ended{.fd = descriptor, .events = POLLIN, .revents = 0};
    const bool inTime = ::poll(&ended, 1, patienceMilliseconds()) == 1;
    ::close(descriptor);
    if (!inTime) return -1;
    int status = 0;
    ::waitpid(std::exchange(process_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace kivo::tests
