#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace kivo::backend {

/// Reads a whole number of ms, s, m or h, such as "80ms"; at most 10,000 hours. Nothing for any
/// other text.
std::optional<std::chrono::milliseconds> parseDuration(std::string_view text);

}  // namespace kivo::backend
