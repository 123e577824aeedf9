#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace kivo::backend {

/// Parses a whole number of ms, s, m or h, such as "80ms", up to 10,000 hours. Any other text gives
/// std::nullopt.
std::optional<std::chrono::milliseconds> parseDuration(std::string_view text);

}  // namespace kivo::backend
