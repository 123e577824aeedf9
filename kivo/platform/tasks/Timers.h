#pragma once

#include <chrono>
#include <map>
#include <optional>

#include "kivo/platform/tasks/Work.h"

namespace kivo::platform {

/// Work with a time at which it is due. It owns its place in the order, so that waiting needs no
/// memory. Its owner removes it before destroying it.
class Timer {
public:
    explicit Timer(Work& work) : work_(work) {
        Places spare;
        place_ = spare.extract(spare.emplace(Clock::time_point(), this));
    }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

private:
    friend class Timers;
    using Clock = std::chrono::steady_clock;
    using Places = std::multimap<Clock::time_point, Timer*>;

    Work& work_;
    Places::node_type place_;  // Empty while it waits.
    Places::iterator waits_;
};

/// The waiting timers, the earliest first. For one thread.
class Timers {
public:
    using Clock = Timer::Clock;

    void add(Timer& timer, Clock::time_point deadline) noexcept {
        timer.place_.key() = deadline;
        timer.waits_ = waiting_.insert(std::move(timer.place_));
    }

    /// Returns false if `timer` does not wait: it was never added, or its work has been taken.
    bool remove(Timer& timer) noexcept {
        const bool isWaiting = timer.place_.empty();
        if (isWaiting) timer.place_ = waiting_.extract(timer.waits_);
        return isWaiting;
    }

    /// Moves the work of every timer that is due to `queue`.
    void takeDue(Clock::time_point now, WorkQueue& queue) noexcept {
        while (!waiting_.empty() && waiting_.begin()->first <= now) {
            Timer& timer = *waiting_.begin()->second;
            remove(timer);
            queue.push(timer.work_);
        }
    }

    std::optional<Clock::time_point> earliest() const noexcept {
        return waiting_.empty() ? std::nullopt : std::optional(waiting_.begin()->first);
    }

private:
    Timer::Places waiting_;
};

}  // namespace kivo::platform
