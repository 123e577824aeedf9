#pragma once

#include <exception>
#include <optional>
#include <utility>

namespace kivo::platform {

/// A value or an error; neither until one has been assigned.
template <typename T>
struct Result {
    Result() = default;
    Result(T success) : value(std::move(success)) {}
    Result(std::exception_ptr failure) : error(std::move(failure)) {}

    std::optional<T> value;
    std::exception_ptr error;
};

/// Returns the value or throws the error.
template <typename T>
T get(Result<T> result) {
    if (result.error) std::rethrow_exception(std::move(result.error));
    return *std::move(result.value);
}

/// The same result with its value converted to `To`.
template <typename To, typename From>
Result<To> widened(Result<From> result) {
    if (result.error) return std::move(result.error);
    return To(*std::move(result.value));
}

}  // namespace kivo::platform
