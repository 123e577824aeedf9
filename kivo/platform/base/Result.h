#pragma once

#include <exception>
#include <utility>
#include <variant>

namespace kivo::platform {

/// A value or an error.
template <typename T>
using Result = std::variant<T, std::exception_ptr>;

/// Returns the value or throws the error.
template <typename T>
T get(Result<T> result) {
    if (auto* error = std::get_if<std::exception_ptr>(&result)) std::rethrow_exception(*error);
    return std::get<T>(std::move(result));
}

/// The same result with its value converted to `To`.
template <typename To, typename From>
Result<To> widened(Result<From> result) {
    if (auto* error = std::get_if<std::exception_ptr>(&result)) return *error;
    return To(std::get<From>(std::move(result)));
}

}  // namespace kivo::platform
