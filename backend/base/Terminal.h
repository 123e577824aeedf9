#pragma once

#include <string>

namespace kivo::backend {

/// One write to the standard output; what different threads print never mixes.
void print(const std::string& text);

/// The same to the standard error.
void printError(const std::string& text);

}  // namespace kivo::backend
