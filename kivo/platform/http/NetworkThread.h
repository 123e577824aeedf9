#pragma once

#include <chrono>
#include <memory>

#include "kivo/platform/http/HTTPTransfer.h"
#include "kivo/platform/http/TimerQueue.h"

namespace kivo::platform {

class NetworkLoop;

/// The thread that transfers bytes: it owns libcurl's multi handle and all timers. Any thread may
/// call, and no call blocks. No caller's code runs on it: completions and due jobs are handed to
/// the pool.
class NetworkThread {
public:
    /// Starts the thread on first use. Throws std::system_error if it cannot be started, and
    /// std::bad_alloc if memory or descriptors run out.
    static NetworkThread& shared();

    void start(std::shared_ptr<HTTPTransfer> transfer);

    /// Ends `transfer` without an outcome if it is still running. Its connection is not reused.
    void cancel(std::shared_ptr<HTTPTransfer> transfer);

    /// Hands `job` to the pool at `deadline`.
    TimerQueue::Timer schedule(TimerQueue::Clock::time_point deadline, TimerQueue::Job job);

    /// Drops the job of `timer` if it is not due yet.
    void unschedule(const TimerQueue::Timer& timer);

private:
    NetworkThread();

    NetworkLoop& loop_;
};

}  // namespace kivo::platform
