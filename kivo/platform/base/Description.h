#pragma once

#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "kivo/platform/Record.h"

namespace kivo::platform {

/// Appends `text` in quotes, with quotes, backslashes and control characters escaped and malformed
/// UTF-8 replaced by U+FFFD.
void appendDescription(std::string& output, std::string_view text);

/// "true" or "false". Accepts only bool itself, so that nothing converts silently.
inline void appendDescription(std::string& output, std::same_as<bool> auto value) {
    output += value ? "true" : "false";
}

/// "Optional(…)", or "nil".
template <typename T>
void appendDescription(std::string& output, const std::optional<T>& optional);

/// The type's name and its fields in order: `Kivo.SdkAuthData(merchantToken: "…", sessionId: "…")`.
template <Record T>
void appendDescription(std::string& output, const T& record);

template <typename T>
void appendDescription(std::string& output, const std::optional<T>& optional) {
    if (!optional) {
        output += "nil";
        return;
    }
    output += "Optional(";
    appendDescription(output, *optional);
    output += ')';
}

template <Record T>
void appendDescription(std::string& output, const T& record) {
    output += T::typeName() + '(';
    const char* separator = "";
    const auto append = [&](const auto& field) {
        output.append(std::exchange(separator, ", ")).append(field.name).append(": ");
        appendDescription(output, record.*field.member);
    };
    std::apply([&](const auto&... field) { (append(field), ...); }, T::fields);
    output += ')';
}

/// A type that `describe` can print.
template <typename T>
concept Describable = Record<T> || std::same_as<T, bool> || isOptional<T> ||
                      std::convertible_to<const T&, std::string_view>;

/// `value` as it is printed.
std::string describe(const Describable auto& value) {
    std::string text;
    appendDescription(text, value);
    return text;
}

}  // namespace kivo::platform
