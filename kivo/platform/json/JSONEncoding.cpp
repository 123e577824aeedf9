#include "kivo/platform/json/JSONEncoding.h"

#include <array>
#include <cstdio>

#include "kivo/platform/base/UTF8.h"

namespace kivo::platform::JSON {

namespace {

void appendASCII(Data& output, char character) {
    switch (character) {
        case '"': output += "\\\""; return;
        case '\\': output += "\\\\"; return;
        case '/': output += "\\/"; return;
        case '\b': output += "\\b"; return;
        case '\f': output += "\\f"; return;
        case '\n': output += "\\n"; return;
        case '\r': output += "\\r"; return;
        case '\t': output += "\\t"; return;
        default: break;
    }
    if (character >= 0x20) {
        output += character;
        return;
    }
    std::array<char, 8> escape{};
    std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(character));
    output += escape.data();
}

}  // namespace

std::string EncodingError::localizedDescription() const {
    return "The data couldn’t be written because it isn’t in the correct format.";
}

void append(Data& output, std::string_view text) {
    output += '"';
    for (;;) {
        const auto plain = UTF8::plainPrefix(text);
        output += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty()) break;
        const auto sequence = UTF8::firstSequence(text);
        if (!sequence.isWellFormed) {
            output += UTF8::replacementCharacter;
        } else if (sequence.length == 1) {
            appendASCII(output, text.front());
        } else {
            output += text.substr(0, sequence.length);
        }
        text.remove_prefix(sequence.length);
    }
    output += '"';
}

}  // namespace kivo::platform::JSON
