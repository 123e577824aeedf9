#pragma once

#include <chrono>
#include <string_view>

namespace kivo::backend {

/// How long tokens are valid.
struct Lifetimes {
    std::chrono::seconds user = std::chrono::minutes(15);
    std::chrono::seconds merchant = std::chrono::hours(1);
};

/// Parses "user=15m,merchant=1h": one or both, in seconds, minutes or hours; what is left out keeps
/// its default. Throws std::invalid_argument with a message that shows the syntax.
Lifetimes parseLifetimes(std::string_view text);

}  // namespace kivo::backend
