#pragma once

#include <string>
#include <vector>

#include "backend/run/CommonOptions.h"

namespace kivo::backend {

struct RunOptions {
    CommonOptions common = {};
    std::vector<std::string> baseUrls = {};
    /// "NAME" or "NAME:PORT", beside the base URLs.
    std::vector<std::string> hosts = {};
    /// A program and its arguments.
    std::vector<std::string> command = {};
};

/// Runs a program for which this backend is whatever its base URL names, and shows its lines beside
/// its requests. Returns the program's exit status, or a failure of the strict. Must come before
/// any other thread of the process. Throws what keeps it from starting, with a text for the person
/// at the keyboard.
int run(RunOptions options);

}  // namespace kivo::backend
