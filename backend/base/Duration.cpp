#include "backend/base/Duration.h"

#include <algorithm>
#include <cstdint>

#include "backend/base/Number.h"

namespace kivo::backend {

namespace {

constexpr std::chrono::milliseconds longest = std::chrono::hours(10'000);

std::optional<std::chrono::milliseconds> unitNamed(std::string_view name) {
    if (name == "ms") return std::chrono::milliseconds(1);
    if (name == "s") return std::chrono::seconds(1);
    if (name == "m") return std::chrono::minutes(1);
    if (name == "h") return std::chrono::hours(1);
    return std::nullopt;
}

}  // namespace

std::optional<std::chrono::milliseconds> parseDuration(std::string_view text) {
    const auto digits = std::min(text.find_first_not_of("0123456789"), text.size());
    const auto count = parseNumber<std::uint32_t>(text.substr(0, digits));
    const auto unit = unitNamed(text.substr(digits));
    if (!count || !unit || *unit * *count > longest) return std::nullopt;
    return *unit * *count;
}

}  // namespace kivo::backend
