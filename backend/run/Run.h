#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backend/admin/Report.h"
#include "backend/run/CommonOptions.h"

namespace kivo::backend {

struct RunOptions {
    CommonOptions common = {};
    /// The program and its arguments.
    std::vector<std::string> command = {};
    /// The program's standard output and terminal are left as they are, and we print nothing.
    bool quiet = false;
    /// Request lines go into this file instead of standard output.
    std::optional<std::string> log = {};
    std::vector<ReportWriter> reports = {};
    /// The program gets an empty state folder of its own.
    bool fresh = false;
};

/// Runs a program with this backend in place of the one that its base URL names, and prints the
/// program's lines and its requests. Returns the program's exit status, or a failure if `strict` is
/// set and a request broke the contract. Must be called before the process starts any other thread.
/// With a message for the user, throws std::invalid_argument if an option is wrong, CannotStart if
/// the program cannot be started, and std::runtime_error if the backend cannot.
int run(RunOptions options);

}  // namespace kivo::backend
