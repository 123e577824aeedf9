#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <iterator>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Patience.h"

namespace kivo::tests {

/// Lines that some thread adds and the test waits for.
class Lines {
public:
    void add(std::string_view line) {
        const std::lock_guard lock(mutex_);
        lines_.emplace_back(line);
        added_.notify_all();
    }

    /// The first line that begins with `start`, awaited; fails the test and is empty when patience
    /// ends. `allowance` is what the line may take before patience begins.
    std::string awaitLine(std::string_view start, std::chrono::seconds allowance = {}) {
        const auto found = awaitLines(start, 1, allowance);
        return found.empty() ? "" : found.front();
    }

    /// All lines that begin with `start`, once there are `count` of them; fails the test when
    /// patience ends first.
    std::vector<std::string> awaitLines(std::string_view start, std::size_t count,
                                        std::chrono::seconds allowance = {}) {
        std::unique_lock lock(mutex_);
        added_.wait_for(lock, allowance + patience, [&] { return find(start).size() >= count; });
        EXPECT_GE(find(start).size(), count) << "lines awaited: " << start;
        return find(start);
    }

    /// Those added up to now.
    std::vector<std::string> lines(std::string_view start = "") const {
        const std::lock_guard lock(mutex_);
        return find(start);
    }

    /// Returns all of them and forgets them.
    std::vector<std::string> take() {
        const std::lock_guard lock(mutex_);
        return std::exchange(lines_, {});
    }

private:
    std::vector<std::string> find(std::string_view start) const {
        std::vector<std::string> found;
        std::ranges::copy_if(lines_, std::back_inserter(found),
                             [&](const auto& line) { return line.starts_with(start); });
        return found;
    }

    mutable std::mutex mutex_;
    std::condition_variable added_;
    std::vector<std::string> lines_;
};
}  // namespace kivo::tests
