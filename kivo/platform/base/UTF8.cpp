#include "kivo/platform/base/UTF8.h"

#include "kivo/platform/base/CharacterSet.h"

namespace kivo::platform::UTF8 {

namespace {

/// What a first byte determines: the sequence's length (0 if no sequence begins with it) and the
/// range of the second byte.
struct Lead {
    std::size_t length;
    unsigned char lowest = 0x80;
    unsigned char highest = 0xBF;
};

constexpr Lead leadOf(unsigned char byte) {
    if (byte < 0x80) return {.length = 1};
    if (byte < 0xC2) return {.length = 0};
    if (byte < 0xE0) return {.length = 2};
    if (byte == 0xE0) return {.length = 3, .lowest = 0xA0};   // Below: overlong.
    if (byte == 0xED) return {.length = 3, .highest = 0x9F};  // Above: surrogates.
    if (byte < 0xF0) return {.length = 3};
    if (byte == 0xF0) return {.length = 4, .lowest = 0x90};  // Below: overlong.
    if (byte < 0xF4) return {.length = 4};
    if (byte == 0xF4) return {.length = 4, .highest = 0x8F};  // Above: beyond U+10FFFF.
    return {.length = 0};
}

constexpr CharacterSet plain =
    (CharacterSet('\0', '\x1F') | CharacterSet("\"\\/") | CharacterSet('\x7F', '\xFF')).inverted();

}  // namespace

Sequence firstSequence(std::string_view text) {
    const Lead lead = leadOf(static_cast<unsigned char>(text.front()));
    if (lead.length == 0) return {.length = 1, .isWellFormed = false};

    const auto continues = [&](std::size_t position) {
        const auto byte = static_cast<unsigned char>(text[position]);
        return position == 1 ? byte >= lead.lowest && byte <= lead.highest
                             : (byte & 0xC0U) == 0x80U;
    };
    std::size_t length = 1;
    while (length < lead.length && length < text.size() && continues(length)) ++length;
    return {.length = length, .isWellFormed = length == lead.length};
}

std::size_t plainPrefix(std::string_view text) { return plain.prefixLength(text); }

bool isWellFormed(std::string_view text) {
    for (;;) {
        text.remove_prefix(plainPrefix(text));
        if (text.empty()) return true;
        const Sequence sequence = firstSequence(text);
        if (!sequence.isWellFormed) return false;
        text.remove_prefix(sequence.length);
    }
}

void append(std::string& text, char32_t codePoint) {
    const auto put = [&](char32_t byte) { text += static_cast<char>(byte); };
    const auto putContinuation = [&](unsigned shift) { put(0x80 | ((codePoint >> shift) & 0x3F)); };
    if (codePoint < 0x80) return put(codePoint);
    if (codePoint < 0x800) {
        put(0xC0 | (codePoint >> 6));
    } else if (codePoint < 0x10000) {
        put(0xE0 | (codePoint >> 12));
        putContinuation(6);
    } else {
        put(0xF0 | (codePoint >> 18));
        putContinuation(12);
        putContinuation(6);
    }
    putContinuation(0);
}

void appendQuoted(std::string& output, std::string_view text,
                  void (*appendEscaped)(std::string& output, std::string_view sequence)) {
    output += '"';
    for (;;) {
        const auto unchanged = plainPrefix(text);
        output += text.substr(0, unchanged);
        text.remove_prefix(unchanged);
        if (text.empty()) break;
        const auto sequence = firstSequence(text);
        if (sequence.isWellFormed) {
            appendEscaped(output, text.substr(0, sequence.length));
        } else {
            output += replacementCharacter;
        }
        text.remove_prefix(sequence.length);
    }
    output += '"';
}

}  // namespace kivo::platform::UTF8
