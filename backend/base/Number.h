#pragma once

#include <charconv>
#include <optional>
#include <string_view>

namespace kivo::backend {

/// The number that the whole text is; nothing when it is more or less than one, or too big.
template <typename Number>
std::optional<Number> parseNumber(std::string_view text) {
    Number number{};
    const auto [end, error] = std::from_chars(text.begin(), text.end(), number);
    if (error != std::errc{} || end != text.end()) return std::nullopt;
    return number;
}

}  // namespace kivo::backend
