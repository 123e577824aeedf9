#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>

namespace kivo::platform {

/// Jobs in the order in which they are due. Not synchronised: its owner guards it.
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

    /// Removes and returns the job of `timer`, or an empty one if it was due already. The caller
    /// destroys it where it suits.
    Job remove(const Timer& timer) {
        auto node = jobs_.extract(timer);
        return node.empty() ? Job() : std::move(*node.mapped());
    }

    /// Moves the jobs that are due to `due`. Needs no memory.
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
