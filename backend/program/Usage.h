#pragma once

#include <CLI/CLI.hpp>

#include <stdexcept>
#include <string>

namespace kivo::backend {

/// A word that is none of the command's subcommands or options; names the most similar ones.
std::invalid_argument unknownWord(const CLI::App& command, const std::string& word);

/// What the parser found wrong, in words of our own.
std::invalid_argument usageErrorFrom(const CLI::ParseError& error, const CLI::App& program);

/// The command with those that contain it, as in "fault add".
std::string pathOf(const CLI::App& command);

}  // namespace kivo::backend
