#include "backend/run/ChildProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "backend/base/ExitStatus.h"
#include "backend/base/SignalSet.h"

namespace kivo::backend {

namespace {

std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const auto& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

std::string hintFor(int error) {
    if (error == ENOENT) return "; is its path right, as in: kivo-dev run -- ./app";
    if (error == EACCES) return "; is it executable?";
    return "";
}

/// Signals that we ignore or inherited as ignored; the program gets their default action.
const sigset_t& restored() {
    static const sigset_t signals = signalSet({SIGINT, SIGQUIT, SIGPIPE});
    return signals;
}

/// The file actions and attributes for posix_spawn(3).
class SpawnOptions {
public:
    explicit SpawnOptions(const sigset_t& mask) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigmask(&attributes_, &mask);
        posix_spawnattr_setsigdefault(&attributes_, &restored());
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnOptions() {
        posix_spawnattr_destroy(&attributes_);
        posix_spawn_file_actions_destroy(&actions_);
    }
    SpawnOptions(const SpawnOptions&) = delete;
    SpawnOptions& operator=(const SpawnOptions&) = delete;

    void redirect(const FileDescriptor& ours, int theirs) {
        posix_spawn_file_actions_adddup2(&actions_, ours.number(), theirs);
    }
    const posix_spawn_file_actions_t* actions() const { return &actions_; }
    const posix_spawnattr_t* attributes() const { return &attributes_; }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

}  // namespace

ChildProcess::ChildProcess(const ChildOptions& options) : output_(makePipe()), errors_(makePipe()) {
    start(options);
    output_.writing.close();
    errors_.writing.close();
}

void ChildProcess::close(int file) { (file == STDOUT_FILENO ? output_ : errors_).reading.close(); }

ChildProcess::Pipe ChildProcess::makePipe() {
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throwLastError("a pipe");
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    return {.reading = FileDescriptor(ends[0], "a pipe"),
            .writing = FileDescriptor(ends[1], "a pipe")};
}

void ChildProcess::start(const ChildOptions& options) {
    SpawnOptions spawning(options.mask);
    if (options.hasPipes) spawning.redirect(output_.writing, STDOUT_FILENO);
    if (options.hasPipes) spawning.redirect(errors_.writing, STDERR_FILENO);
    const auto& program = options.command.front();
    const int error =
        posix_spawnp(&id_, program.c_str(), spawning.actions(), spawning.attributes(),
                     pointersTo(options.command).data(), pointersTo(options.environment).data());
    if (error == 0) return;
    throw CannotStart(
        "cannot start " + program + ": " + std::generic_category().message(error) + hintFor(error),
        error == ENOENT ? exitStatus::notFound : exitStatus::notExecutable);
}

bool ChildState::hasStopped() const { return WIFSTOPPED(waitStatus_); }

int ChildState::exitStatus() const {
    return WIFSIGNALED(waitStatus_) ? exitStatus::signalled + WTERMSIG(waitStatus_)
                                    : WEXITSTATUS(waitStatus_);
}

std::string ChildState::description() const {
    if (!WIFSIGNALED(waitStatus_))
        return "ended with status " + std::to_string(WEXITSTATUS(waitStatus_));
    const int signal = WTERMSIG(waitStatus_);
    const char* name = sigabbrev_np(signal);
    return "was ended by signal " + std::to_string(signal) + " (SIG" + (name ? name : "?") + ")";
}

std::optional<ChildState> changeOf(pid_t id) {
    int status = 0;
    if (waitpid(id, &status, WNOHANG | WUNTRACED) != id) return std::nullopt;
    return ChildState(status);
}

}  // namespace kivo::backend
