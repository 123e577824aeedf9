#include "backend/base/Terminal.h"

#include <cstdio>

namespace kivo::backend {

namespace {

void write(const std::string& text, std::FILE* stream) {
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
}

}  // namespace

void print(const std::string& text) { write(text, stdout); }

void printError(const std::string& text) { write(text, stderr); }

}  // namespace kivo::backend
