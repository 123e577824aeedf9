#include "backend/journal/ContractPath.h"

#include <algorithm>
#include <charconv>
#include <string>

#include "backend/service/Endpoints.h"

namespace kivo::backend {

namespace {

/// Decodes the escape at the front, if there is one; removes what it has read.
char nextCharacter(std::string_view& text) {
    const char first = text.front();
    unsigned char decoded = 0;
    const bool escaped =
        first == '%' && text.size() >= 3 &&
        std::from_chars(text.data() + 1, text.data() + 3, decoded, 16).ptr == text.data() + 3;
    text.remove_prefix(escaped ? 3 : 1);
    return escaped ? static_cast<char>(decoded) : first;
}

char inLowerCase(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

std::string simplified(std::string_view path) {
    std::string simple;
    while (!path.empty()) {
        const char letter = inLowerCase(nextCharacter(path));
        if (letter != '/' || !simple.ends_with('/')) simple += letter;
    }
    if (simple.ends_with('/')) simple.pop_back();
    return simple;
}

}  // namespace

bool resemblesContract(std::string_view path) {
    const auto simple = simplified(path);
    return simple.find("api/communication") != simple.npos ||
           std::ranges::any_of(endpoints(), [&](const Endpoint& endpoint) {
               return simple.ends_with("/" + std::string(endpoint.name));
           });
}

}  // namespace kivo::backend
