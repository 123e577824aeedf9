#pragma once

#include <sys/types.h>

#include <atomic>
#include <csignal>
#include <functional>

#include "backend/base/FileDescriptor.h"

namespace kivo::backend {

/// The signals that a supervising process handles: those that ask it to end, and SIGCHLD. Blocked
/// by the constructor in this thread and all that it starts later.
class GuardedSignals {
public:
    GuardedSignals();

    const sigset_t& set() const { return set_; }

    /// The mask before the constructor.
    const sigset_t& maskBefore() const { return before_; }

private:
    sigset_t set_{};
    sigset_t before_{};
};

/// Waits for a child on a thread of its own and forwards termination signals to it. If the process
/// does not end soon after it was asked to, by a signal or by exitWith(), the thread ends it: a
/// stalled reader of standard output or a slow name look-up could otherwise block it. There is one
/// per process, and it is never destroyed, since its thread runs to the end.
class ChildWatch {
public:
    /// `cleanUp` is called before the thread ends the process.
    ChildWatch(pid_t child, const GuardedSignals& signals, std::function<void()> cleanUp);

    /// Becomes readable when the child has ended.
    const FileDescriptor& ended() const { return ended_; }

    /// The exit status of the child, once it has ended.
    int status() const { return status_; }

    /// Makes the process end with this status, even if its main thread is blocked.
    void exitWith(int status);

private:
    void watch();
    int awaitChild();
    siginfo_t awaitSignal();
    void forward(const siginfo_t& signal);

    const pid_t child_;
    const sigset_t signals_;
    const std::function<void()> cleanUp_;
    const FileDescriptor ended_;
    std::atomic<int> status_ = 0;
    sigset_t early_{};  ///< Pending before the child was started.
    bool shouldExit_ = false;
};

}  // namespace kivo::backend
