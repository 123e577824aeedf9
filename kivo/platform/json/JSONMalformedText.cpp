#include "kivo/platform/json/JSONMalformedText.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "kivo/platform/base/UTF8.h"

namespace kivo::platform::JSON {

namespace {

using UTF8::Sequence;

/// Of an escape such as \u00e9, if `text` begins with one.
std::optional<unsigned> codeUnit(std::string_view text) {
    constexpr std::size_t start = 2;
    constexpr std::size_t end = 6;
    unsigned value = 0;
    if (!text.starts_with("\\u") || text.size() < end) return std::nullopt;
    const auto read = std::from_chars(text.data() + start, text.data() + end, value, 16);
    return read.ptr == text.data() + end ? std::optional(value) : std::nullopt;
}

/// An escape of another kind, known or not, is the parser's to judge.
Sequence firstEscape(std::string_view text) {
    const auto first = codeUnit(text);
    if (!first) return {.length = std::min<std::size_t>(text.size(), 2), .isWellFormed = true};
    if (*first < 0xD800 || *first > 0xDFFF) return {.length = 6, .isWellFormed = true};
    const auto second = codeUnit(text.substr(6));
    const bool isPair = *first < 0xDC00 && second && *second >= 0xDC00 && *second <= 0xDFFF;
    return {.length = isPair ? 12U : 6U, .isWellFormed = isPair};
}

Sequence firstPiece(std::string_view text) {
    if (text.front() == '\\') return firstEscape(text);
    if (static_cast<unsigned char>(text.front()) < ' ') return {.length = 1, .isWellFormed = false};
    return UTF8::firstSequence(text);
}

}  // namespace

Data withMalformedTextMarked(std::string_view json) {
    Data marked;
    for (bool inText = false; !json.empty();) {
        const Sequence piece = inText ? firstPiece(json) : Sequence{1, true};
        marked += piece.isWellFormed ? json.substr(0, piece.length) : malformedMark;
        inText = inText != (json.front() == '"');
        json.remove_prefix(piece.length);
    }
    return marked;
}

}  // namespace kivo::platform::JSON
