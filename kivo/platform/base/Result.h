#pragma once

#include <exception>
#include <optional>
#include <utility>

namespace kivo::platform {

/// A value or an error; neither until one has been assigned.
template <typename T>
struct Result {
    Result() = default;
    // NOLINTBEGIN(google-explicit-constructor): either is a result.
    Result(T success) : value(std::move(success)) {}
    Result(std::exception_ptr failure) : error(std::move(failure)) {}
    // NOLINTEND(google-explicit-constructor)

    std::optional<T> value;
    std::exception_ptr error;
};

/// Returns the value or throws the error.
template <typename T>
T get(Result<T> result) {
    if (result.error) std::rethrow_exception(std::move(result.error));
    return *std::move(result.value);
}

/// The same result with a value that may be absent.
template <typename T>
Result<std::optional<T>> widened(Result<T> result) {
    if (result.error) return std::move(result.error);
    return std::move(result.value);
}

}  // namespace kivo::platform
