#pragma once

#include <optional>

#include "backend/run/CommonOptions.h"

namespace kivo::backend {

struct ServeOptions {
    CommonOptions common = {};
    /// A descriptor that gets the line "PORT TRUST-FILE" once the backend listens, then one with
    /// the admin port if there is one, and is then closed.
    std::optional<int> readyDescriptor = {};
};

/// Runs the backend until SIGINT or SIGTERM; returns the exit status. Must come before any other
/// thread of the process. Throws what keeps it from starting, with a text for the person at the
/// keyboard.
int serve(ServeOptions options);

}  // namespace kivo::backend
