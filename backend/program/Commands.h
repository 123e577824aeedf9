#pragma once

#include <CLI/CLI.hpp>

#include <functional>

#include "backend/run/CommonOptions.h"

namespace kivo::backend {

/// What the command line asks for; returns the exit status.
using Action = std::function<int()>;

/// Each describes its commands to the parser and sets the action when one of them is given.
void addServe(CLI::App& program, Action& action);
void addRun(CLI::App& program, Action& action);
void addAdminCommands(CLI::App& program, Action& action);

/// The options that serve and run share.
void addCommonOptions(CLI::App& command, CommonOptions& options);

}  // namespace kivo::backend
