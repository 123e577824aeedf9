#pragma once

#include <string>
#include <vector>

#include "backend/run/CommonOptions.h"

namespace kivo::backend {

struct RunOptions {
    CommonOptions common = {};
    std::vector<std::string> baseUrls = {};
    /// "NAME" or "NAME:PORT", in addition to the base URLs.
    std::vector<std::string> hosts = {};
    /// The program and its arguments.
    std::vector<std::string> command = {};
};

/// Runs a program with this backend in place of the one that its base URL names, and prints the
/// program's lines and its requests. Returns the program's exit status, or a failure if `strict` is
/// set and a request broke the contract. Must be called before the process starts any other thread.
/// Throws std::runtime_error, with a message for the user, if it cannot start.
int run(RunOptions options);

}  // namespace kivo::backend
