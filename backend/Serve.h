#pragma once

#include "backend/Lifetimes.h"

#include <cstdint>
#include <optional>

namespace kivo::backend {

struct ServeOptions {
    std::uint16_t port = 8443;
    Lifetimes lifetimes = {};
    /// A descriptor that gets the line "PORT TRUST-FILE" once the backend listens, and is then
    /// closed.
    std::optional<int> readyDescriptor = {};
};

/// Runs the backend until SIGINT or SIGTERM. Must come before any other thread of the process.
/// Throws what keeps it from starting, with a text for the person at the keyboard.
void serve(const ServeOptions& options);

}  // namespace kivo::backend
