#pragma once

#include <sys/types.h>

#include <atomic>
#include <csignal>
#include <functional>

#include "backend/base/FileDescriptor.h"

namespace kivo::backend {

/// The signals that a program's guardian deals with: those that ask it to end, and the one that
/// tells of a child's end. Blocked from construction on, in this thread and all that it starts.
class GuardedSignals {
public:
    GuardedSignals();

    const sigset_t& set() const { return set_; }

    /// What was blocked before.
    const sigset_t& maskBefore() const { return before_; }

private:
    sigset_t set_{};
    sigset_t before_{};
};

/// Waits for a child's end on a thread of its own and hands signals on that ask for one. When the
/// process has been asked to end, by a signal or by endWith(), and has not done so shortly after,
/// the thread ends it: somebody who reads the standard output, or a look-up of a host, may hold it
/// up. There is one in a process, and it is never destroyed: its thread stays to the end.
class ChildWatch {
public:
    /// `lastAct` is called before such an end.
    ChildWatch(pid_t child, const GuardedSignals& signals, std::function<void()> lastAct);

    /// Becomes readable when the child has ended.
    const FileDescriptor& ended() const { return ended_; }

    /// Of the child that has ended.
    int status() const { return status_; }

    /// The process is about to end, with this status, whoever ends it.
    void endWith(int status);

private:
    void watch();
    int awaitChild();
    siginfo_t awaitSignal();
    void handOn(const siginfo_t& signal);

    const pid_t child_;
    const sigset_t signals_;
    const std::function<void()> lastAct_;
    const FileDescriptor ended_;
    std::atomic<int> status_ = 0;
    sigset_t early_{};  ///< May have come before the child was there.
    bool askedToEnd_ = false;
};

}  // namespace kivo::backend
