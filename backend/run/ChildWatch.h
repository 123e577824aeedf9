#pragma once

#include <sys/types.h>

#include <atomic>
#include <csignal>
#include <functional>

#include "backend/base/FileDescriptor.h"
#include "backend/run/ChildProcess.h"

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
    const sigset_t set_;
    sigset_t before_{};
};

/// Waits for a child on a thread of its own and forwards termination signals to it. If the process
/// does not end soon after it was asked to, by a signal or by exitWith(), the thread ends it: a
/// stalled reader of standard output or a slow name look-up could otherwise block it. A program
/// that stops itself stops this process too, so that the shell learns of it. There is one watch per
/// process, and it is never destroyed, since its thread runs to the end.
class ChildWatch {
public:
    struct Options {
        pid_t child = -1;
        /// Whether the second request to end kills a child that ignored the first.
        bool endsDeafChild = true;
        /// Called before the thread ends the process.
        std::function<void()> cleanUp;
    };

    ChildWatch(Options options, const GuardedSignals& signals);

    /// Becomes readable when the child has ended.
    const FileDescriptor& ended() const { return ended_; }

    /// How the child ended. Only after `ended()` has become readable.
    const ChildState& state() const { return state_; }

    /// Makes the process end with this status, even if its main thread is blocked.
    void exitWith(int status);

private:
    void watch();
    ChildState awaitChild();
    siginfo_t awaitSignal();
    void forward(const siginfo_t& signal);
    void stopWithChild() const;

    const Options options_;
    const sigset_t signals_;
    const FileDescriptor ended_;
    ChildState state_{0};
    std::atomic<int> status_ = 0;
    sigset_t early_{};  ///< Pending before the child was started.
    bool shouldExit_ = false;
};

}  // namespace kivo::backend
