#include "backend/base/Terminal.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace kivo::backend {

namespace {

void write(const std::string& text, std::FILE* stream) {
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
}

std::string_view variable(const char* name) {
    const auto* value = std::getenv(name);
    return value ? value : "";
}

}  // namespace

bool usesColours(Stream stream) {
    const auto terminal = variable("TERM");
    return isatty(stream == Stream::output ? STDOUT_FILENO : STDERR_FILENO) == 1 &&
           variable("NO_COLOR").empty() && !terminal.empty() && terminal != "dumb";
}

void print(const std::string& text) { write(text, stdout); }

void printError(const std::string& text) { write(text, stderr); }

}  // namespace kivo::backend
