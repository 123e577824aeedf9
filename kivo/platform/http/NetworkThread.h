#pragma once

#include <chrono>
#include <memory>

#include "kivo/platform/http/HTTPTransfer.h"
#include "kivo/platform/http/TimerQueue.h"

namespace kivo::platform {

class NetworkLoop;

/// The one thread that moves bytes: it owns the libcurl multi handle and all timers. Any thread may
/// call; nothing here waits. No code of a caller's runs on it: completions and due jobs are handed
/// to the pool.
class NetworkThread {
public:
    /// Starts the thread on first use; throws std::system_error when it cannot be had.
    static NetworkThread& shared();

    void start(std::shared_ptr<HTTPTransfer> transfer);

    /// Ends `transfer` without an outcome if it is still going on. Its connection is not used
    /// again.
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
