#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>

namespace kivo::platform {

/// Jobs and when they are due, earliest first. Plain data: its owner guards it.
class TimerQueue {
public:
    using Clock = std::chrono::steady_clock;
    using Job = std::function<void()>;
    using Timer = std::pair<Clock::time_point, std::uint64_t>;
    using Jobs = std::map<Timer, std::shared_ptr<Job>>;

    Timer add(Clock::time_point deadline, Job job) {
        const Timer timer{deadline, ++lastNumber_};
        jobs_.emplace(timer, std::make_shared<Job>(std::move(job)));
        return timer;
    }

    /// Takes the job of `timer` out, or an empty one if it was due already. The caller destroys it
    /// where it likes.
    Job remove(const Timer& timer) {
        auto node = jobs_.extract(timer);
        return node.empty() ? Job() : std::move(*node.mapped());
    }

    /// Moves what is due over to `due`. Needs no memory.
    void takeDue(Clock::time_point now, Jobs& due) {
        while (!jobs_.empty() && jobs_.begin()->first.first <= now)
            due.insert(jobs_.extract(jobs_.begin()));
    }

    std::optional<Clock::time_point> earliest() const {
        return jobs_.empty() ? std::nullopt : std::optional(jobs_.begin()->first.first);
    }

private:
    Jobs jobs_;
    std::uint64_t lastNumber_ = 0;
};

}  // namespace kivo::platform
