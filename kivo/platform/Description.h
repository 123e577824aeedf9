#pragma once

#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "kivo/platform/Record.h"

namespace kivo::platform {

/// `text` in quotes, as it is printed: quotes, backslashes and control characters escaped, bytes
/// that are not UTF-8 shown as U+FFFD.
std::string describe(std::string_view text);

/// "true" or "false"; only for a real bool, to which nothing converts silently.
std::string describe(std::same_as<bool> auto value) { return value ? "true" : "false"; }

/// "Optional(…)", or "nil".
template <typename T>
std::string describe(const std::optional<T>& optional);

/// The type's name and its fields in order: `Kivo.SdkAuthData(merchantToken: "…", sessionId: "…")`.
template <Record T>
std::string describe(const T& record);

template <typename T>
std::string describe(const std::optional<T>& optional) {
    return optional ? "Optional(" + describe(*optional) + ")" : "nil";
}

template <Record T>
std::string describe(const T& record) {
    std::string text;
    const auto append = [&](const auto& field) {
        text += text.empty() ? "" : ", ";
        text.append(field.name).append(": ").append(describe(record.*field.member));
    };
    std::apply([&](const auto&... field) { (append(field), ...); }, T::fields);
    return T::typeName() + "(" + text + ")";
}

}  // namespace kivo::platform
