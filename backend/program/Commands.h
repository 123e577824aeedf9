#pragma once

#include <CLI/CLI.hpp>

#include <functional>

#include "backend/run/CommonOptions.h"

namespace kivo::backend {

/// The selected command; returns the exit status.
using Command = std::function<int()>;

/// Each adds its commands to the parser and sets `selected` when one of them is given.
void addServe(CLI::App& program, Command& selected);
void addRun(CLI::App& program, Command& selected);
void addAdminCommands(CLI::App& program, Command& selected);

/// Accepts whole numbers in a range; says so in words.
CLI::Validator numberFrom(long lowest, long highest);

/// Adds the options that serve and run share.
void addCommonOptions(CLI::App& command, CommonOptions& options);

}  // namespace kivo::backend
