#pragma once

#include <optional>
#include <string_view>
#include <utility>

namespace kivo::platform {

/// Stops the process: "Fatal error: " and `message` go to standard error as one line, then it
/// aborts.
[[noreturn]] void fatalError(std::string_view message) noexcept;

/// Stops the process as a forced unwrap of nothing does.
[[noreturn]] void foundNil() noexcept;

/// The value of an optional that must hold one; without it the process stops.
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
