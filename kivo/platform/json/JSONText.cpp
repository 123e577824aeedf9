#include "kivo/platform/json/JSONText.h"

#include <charconv>

#include "kivo/platform/base/CharacterSet.h"
#include "kivo/platform/base/UTF8.h"

namespace kivo::platform::JSON {

namespace {

constexpr CharacterSet controls('\0', '\x1F');
constexpr CharacterSet nonControls = controls.inverted();

/// What stands behind the backslash of a short escape, and what each means.
constexpr std::string_view shortEscapes = R"("\/bfnrt)";
constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";

constexpr std::size_t shortLength = 2;
constexpr std::size_t longLength = 6;

void appendEscaped(Data& output, std::string_view sequence) {
    const char character = sequence.front();
    if (const auto found = meanings.find(character); found != std::string_view::npos) {
        output += '\\';
        output += shortEscapes[found];
    } else if (controls.contains(character)) {
        output += character < 0x10 ? "\\u000" : "\\u001";
        output += "0123456789abcdef"[character & 0xF];
    } else {
        output += sequence;
    }
}

/// The code unit of an escape such as \u00e9, if `text` begins with one.
std::optional<char32_t> codeUnit(std::string_view text) {
    unsigned unit = 0;
    if (!text.starts_with("\\u") || text.size() < longLength) return std::nullopt;
    const auto* const end = text.data() + longLength;
    const auto read = std::from_chars(text.data() + shortLength, end, unit, 16);
    return read.ptr == end ? std::optional(unit) : std::nullopt;
}

bool isHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

/// Appends what the escape at the front of `text` means, and tells its length: 0 if it is not one.
/// Half of a surrogate pair is appended as it is, and is not UTF-8.
std::size_t appendMeaning(std::string& output, std::string_view text) {
    if (const auto first = codeUnit(text)) {
        const auto second = codeUnit(text.substr(longLength)).value_or(0);
        const bool isPair = isHighSurrogate(*first) && isLowSurrogate(second);
        UTF8::append(output,
                     isPair ? 0x10000 + ((*first & 0x3FF) << 10) + (second & 0x3FF) : *first);
        return isPair ? 2 * longLength : longLength;
    }
    const auto found =
        text.size() < shortLength ? std::string_view::npos : shortEscapes.find(text[1]);
    if (found == std::string_view::npos) return 0;
    output += meanings[found];
    return shortLength;
}

}  // namespace

void append(Data& output, std::string_view text) {
    UTF8::appendQuoted(output, text, appendEscaped);
}

std::optional<std::string> unescaped(std::string_view quoted) {
    if (!nonControls.containsAll(quoted)) return std::nullopt;
    std::string text;
    for (;;) {
        const auto plain = quoted.substr(0, quoted.find('\\'));
        text += plain;
        quoted.remove_prefix(plain.size());
        if (quoted.empty()) break;
        const auto length = appendMeaning(text, quoted);
        if (length == 0) return std::nullopt;
        quoted.remove_prefix(length);
    }
    return UTF8::isWellFormed(text) ? std::optional(std::move(text)) : std::nullopt;
}

}  // namespace kivo::platform::JSON
