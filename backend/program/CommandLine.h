#pragma once

#include <CLI/CLI.hpp>

#include "backend/program/Commands.h"

namespace kivo::backend {

/// The one description of the command line, from which parsing, help, the man page and completion
/// are made. Sets `selected` when a command is given.
void describeCommandLine(CLI::App& program, Command& selected);

}  // namespace kivo::backend
