#pragma once

#include <charconv>
#include <optional>
#include <string_view>

namespace kivo::backend {

/// Parses the whole text as an integer; std::nullopt if it is not one or does not fit.
template <typename Number>
std::optional<Number> parseNumber(std::string_view text) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return number;
}

}  // namespace kivo::backend
