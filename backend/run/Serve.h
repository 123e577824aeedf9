#pragma once

#include <optional>

#include "backend/run/CommonOptions.h"

namespace kivo::backend {

struct ServeOptions {
    CommonOptions common = {};
    /// A descriptor to which three lines are written once the backend listens: "PORT TRUST-FILE",
    /// the admin port or "off", and the trust file for programs that use the backend as their
    /// proxy. It is then closed.
    std::optional<int> readyDescriptor = {};
    /// Opens the inspector page in the user's browser.
    bool opensPage = false;
};

/// Runs the backend until SIGINT or SIGTERM; returns the exit status. Must be called before the
/// process starts any other thread. With a message for the user, throws std::invalid_argument if an
/// option is wrong, and std::runtime_error if it cannot start.
int serve(ServeOptions options);

}  // namespace kivo::backend
