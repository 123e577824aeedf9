#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kivo::tests {

/// What the framework prints, line by line, in place of standard output.
class Output {
public:
    Output();

    /// The first line that begins with `start`, awaited; fails the test and is empty when patience
    /// ends. `allowance` is what the line may take before patience begins.
    std::string awaitLine(std::string_view start, std::chrono::seconds allowance = {});

    /// All lines that begin with `start`, once there are `count` of them; fails the test when
    /// patience ends first.
    std::vector<std::string> awaitLines(std::string_view start, std::size_t count,
                                        std::chrono::seconds allowance = {});

    /// Those printed up to now.
    std::vector<std::string> lines(std::string_view start = "") const;

private:
    void add(std::string_view line);
    std::vector<std::string> find(std::string_view start) const;

    mutable std::mutex mutex_;
    std::condition_variable added_;
    std::vector<std::string> lines_;
};

}  // namespace kivo::tests
