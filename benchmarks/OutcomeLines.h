#pragma once

#include <chrono>
#include <semaphore>
#include <string>
#include <string_view>

namespace kivo::benchmarks {

/// Counts the lines on standard output that end an operation, whatever pieces they are written in:
/// part of a line, one line or many. Kivo prints as it always does and knows nothing of it: the
/// linker hands its calls of `fwrite` and `write` to this counter, which passes them on.
class OutcomeLines {
public:
    /// Returns once one more operation has ended; gives up after a minute without one.
    static void await();
    static void await(int operations);

    /// Kivo writes its pieces one after another, so this needs no lock.
    static void take(std::string_view piece);

private:
    static OutcomeLines& instance();
    static void judge(const std::string& line);

    std::counting_semaphore<> ended_{0};
    std::string begun_;
};

}  // namespace kivo::benchmarks
