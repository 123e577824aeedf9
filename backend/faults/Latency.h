#pragma once

#include <chrono>
#include <random>
#include <string_view>

namespace kivo::backend {

/// How long answers take on their way, drawn evenly from a middle and a spread around it.
class Latency {
public:
    /// None.
    Latency() = default;

    /// Reads "80ms" or "80ms+-30ms"; the spread's unit may be left out, it is milliseconds then.
    /// Throws std::invalid_argument with a text that shows how it is written.
    static Latency parse(std::string_view text);

    std::chrono::milliseconds draw(std::mt19937_64& generator) const;

private:
    std::chrono::milliseconds middle_{0};
    std::chrono::milliseconds spread_{0};
};

}  // namespace kivo::backend
