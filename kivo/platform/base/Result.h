#pragma once

#include <exception>
#include <utility>
#include <variant>

namespace kivo::platform {

/// A value, or the error that stands in its place.
template <typename T>
using Result = std::variant<T, std::exception_ptr>;

/// The value; throws the error if there is one.
template <typename T>
T get(Result<T> result) {
    if (auto* error = std::get_if<std::exception_ptr>(&result)) std::rethrow_exception(*error);
    return std::get<T>(std::move(result));
}

/// The same outcome for a type that its value converts to.
template <typename To, typename From>
Result<To> widened(Result<From> result) {
    if (auto* error = std::get_if<std::exception_ptr>(&result)) return *error;
    return To(std::get<From>(std::move(result)));
}

}  // namespace kivo::platform
