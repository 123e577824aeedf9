#include "backend/faults/Latency.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "backend/base/Duration.h"

namespace kivo::backend {

namespace {

std::optional<std::chrono::milliseconds> parseSpread(const std::string& text) {
    const auto withUnit = parseDuration(text);
    return withUnit ? withUnit : parseDuration(text + "ms");
}

}  // namespace

Latency Latency::parse(std::string_view text) {
    constexpr std::string_view mark = "+-";
    const auto split = text.find(mark);
    const auto middle = parseDuration(text.substr(0, split));
    const auto spread = split == text.npos ? "0ms" : std::string(text.substr(split + mark.size()));
    const auto around = parseSpread(spread);
    if (!middle || !around) {
        throw std::invalid_argument("\"" + std::string(text) +
                                    "\" is not a latency; write it like 80ms or 80ms+-30ms");
    }
    Latency latency;
    latency.middle_ = *middle;
    latency.spread_ = *around;
    return latency;
}

std::string Latency::text() const {
    const auto middle = std::to_string(middle_.count()) + "ms";
    return spread_.count() == 0 ? middle : middle + "+-" + std::to_string(spread_.count()) + "ms";
}

std::chrono::milliseconds Latency::draw(std::mt19937_64& generator) const {
    std::uniform_int_distribution<std::chrono::milliseconds::rep> around(-spread_.count(),
                                                                         spread_.count());
    return std::max(middle_ + std::chrono::milliseconds(around(generator)),
                    std::chrono::milliseconds(0));
}

}  // namespace kivo::backend
