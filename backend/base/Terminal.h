#pragma once

#include <string>

namespace kivo::backend {

/// Writes to standard output in one piece, so that the output of different threads does not mix.
void print(const std::string& text);

/// The same for standard error.
void printError(const std::string& text);

}  // namespace kivo::backend
