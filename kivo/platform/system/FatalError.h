#pragma once

#include <optional>
#include <string_view>
#include <utility>

namespace kivo::platform {

/// Writes "Fatal error: " and `message` to standard error as one line, and `remedy` as a second one
/// unless it is empty, then aborts the process.
[[noreturn]] void fatalError(std::string_view message, std::string_view remedy = {}) noexcept;

/// Aborts the process as a forced unwrap of an empty optional does.
[[noreturn]] void foundNil(std::string_view remedy = {}) noexcept;

/// The value of an optional that must hold one; aborts the process if it is empty.
template <typename T>
const T& unwrap(const std::optional<T>& optional, std::string_view remedy = {}) noexcept {
    if (!optional) foundNil(remedy);
    return *optional;
}

template <typename T>
T unwrap(std::optional<T>&& optional, std::string_view remedy = {}) {
    if (!optional) foundNil(remedy);
    return *std::move(optional);
}

}  // namespace kivo::platform
