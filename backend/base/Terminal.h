#pragma once

#include <string>

namespace kivo::backend {

enum class Stream { output, errors };

/// Whether the stream is a terminal that shows colours and whose user wants them: neither NO_COLOR
/// nor TERM=dumb is set.
bool usesColours(Stream stream);

/// Writes to standard output in one piece, so that the output of different threads does not mix.
void print(const std::string& text);

/// The same for standard error.
void printError(const std::string& text);

}  // namespace kivo::backend
