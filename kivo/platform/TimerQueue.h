#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace kivo::platform {

/// Jobs and when they are due, earliest first. Plain data: its owner guards it.
class TimerQueue {
public:
    using Clock = std::chrono::steady_clock;
    using Job = std::function<void()>;
    using Timer = std::pair<Clock::time_point, std::uint64_t>;

    Timer add(Clock::time_point deadline, Job job) {
        const Timer timer{deadline, ++lastNumber_};
        jobs_.emplace(timer, std::move(job));
        return timer;
    }

    /// Takes the job of `timer` out, or an empty one if it was due already. The caller destroys it
    /// where it likes.
    Job remove(const Timer& timer) {
        auto node = jobs_.extract(timer);
        return node.empty() ? Job() : std::move(node.mapped());
    }

    std::vector<Job> takeDue(Clock::time_point now) {
        std::vector<Job> due;
        while (!jobs_.empty() && jobs_.begin()->first.first <= now)
            due.push_back(remove(jobs_.begin()->first));
        return due;
    }

    std::optional<Clock::time_point> earliest() const {
        return jobs_.empty() ? std::nullopt : std::optional(jobs_.begin()->first.first);
    }

private:
    std::map<Timer, Job> jobs_;
    std::uint64_t lastNumber_ = 0;
};

}  // namespace kivo::platform
