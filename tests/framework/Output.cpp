#include "tests/framework/Output.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "kivo/platform/Console.h"
#include "tests/support/Patience.h"

namespace kivo::tests {

Output::Output() {
    platform::Console::setOutput([this](std::string_view line) { add(line); });
}

void Output::add(std::string_view line) {
    const std::lock_guard lock(mutex_);
    lines_.emplace_back(line);
    added_.notify_all();
}

std::string Output::awaitLine(std::string_view start, std::chrono::seconds allowance) {
    const auto found = awaitLines(start, 1, allowance);
    return found.empty() ? "" : found.front();
}

std::vector<std::string> Output::awaitLines(std::string_view start, std::size_t count,
                                            std::chrono::seconds allowance) {
    std::unique_lock lock(mutex_);
    added_.wait_for(lock, allowance + patience, [&] { return find(start).size() >= count; });
    EXPECT_GE(find(start).size(), count) << "lines awaited: " << start;
    return find(start);
}

std::vector<std::string> Output::lines(std::string_view start) const {
    const std::lock_guard lock(mutex_);
    return find(start);
}

std::vector<std::string> Output::find(std::string_view start) const {
    std::vector<std::string> found;
    std::copy_if(lines_.begin(), lines_.end(), std::back_inserter(found),
                 [&](const std::string& line) { return line.starts_with(start); });
    return found;
}

}  // namespace kivo::tests
