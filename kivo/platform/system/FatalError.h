#pragma once

#include <optional>
#include <string_view>
#include <utility>

namespace kivo::platform {

/// Writes "Fatal error: " and `message` to standard error as one line, then aborts the process.
[[noreturn]] void fatalError(std::string_view message) noexcept;

/// Aborts the process as a forced unwrap of an empty optional does.
[[noreturn]] void foundNil() noexcept;

/// The value of an optional that must hold one; aborts the process if it is empty.
template <typename T>
const T& unwrap(const std::optional<T>& optional) noexcept {
    if (!optional) foundNil();
    return *optional;
}

template <typename T>
T unwrap(std::optional<T>&& optional) {
    if (!optional) foundNil();
    return *std::move(optional);
}

}  // namespace kivo::platform
