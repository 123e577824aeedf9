#pragma once

#include <chrono>
#include <random>
#include <string>
#include <string_view>

namespace kivo::backend {

/// The time that replies are delayed: evenly distributed around a middle.
class Latency {
public:
    /// No delay.
    Latency() = default;

    /// Parses "80ms" or "80ms+-30ms"; a spread without a unit is in milliseconds. Throws
    /// std::invalid_argument with a message that shows the syntax.
    static Latency parse(std::string_view text);

    /// The written form, as in "80ms+-30ms".
    std::string text() const;

    std::chrono::milliseconds draw(std::mt19937_64& generator) const;

private:
    std::chrono::milliseconds middle_{0};
    std::chrono::milliseconds spread_{0};
};

}  // namespace kivo::backend
