#include "kivo/platform/base/Description.h"

#include <array>
#include <cstdio>

#include "kivo/platform/base/UTF8.h"

namespace kivo::platform {

namespace {

/// The code point of a control character's sequence; 0 for any other character, and for NUL.
unsigned char controlCharacter(std::string_view sequence) {
    const auto last = static_cast<unsigned char>(sequence.back());
    const bool isFirstBlock = sequence.size() == 1 && (last < 0x20 || last == 0x7F);
    const bool isSecondBlock = sequence.size() == 2 && sequence.front() == '\xC2' && last < 0xA0;
    return isFirstBlock || isSecondBlock ? last : 0;
}

std::string numericEscape(unsigned char codePoint) {
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "\\u{%02X}", codePoint);
    return text.data();
}

std::string escaped(std::string_view sequence) {
    switch (sequence.front()) {
        case '"': return "\\\"";
        case '\\': return "\\\\";
        case '\n': return "\\n";
        case '\r': return "\\r";
        case '\t': return "\\t";
        case '\0': return "\\0";
        default: break;
    }
    const auto control = controlCharacter(sequence);
    return control != 0 ? numericEscape(control) : std::string(sequence);
}

}  // namespace

void appendDescription(std::string& output, std::string_view text) {
    UTF8::appendQuoted(output, text, [](std::string& quoted, std::string_view sequence) {
        quoted += escaped(sequence);
    });
}

}  // namespace kivo::platform
