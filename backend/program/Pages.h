#pragma once

#include <CLI/CLI.hpp>

#include <filesystem>
#include <string>

namespace kivo::backend {

/// The man page, in troff.
std::string manPage(const CLI::App& program);

/// Completion of commands and options for bash.
std::string bashCompletion(const CLI::App& program);

/// Writes kivo-dev.1 and kivo-dev.bash into an existing folder. Throws std::runtime_error, with a
/// message for the user, if they cannot be written.
void writePages(const CLI::App& program, const std::filesystem::path& folder);

}  // namespace kivo::backend
