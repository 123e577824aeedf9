#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kivo::platform::UTF8 {

/// What a text begins with: one encoded code point, or the longest part of one that is cut short or
/// malformed.
struct Sequence {
    std::size_t length;
    bool isWellFormed;
};

/// The sequence at the front of `text`, which must not be empty.
Sequence firstSequence(std::string_view text);

/// How many characters `text` begins with that are printable ASCII and neither `"`, `\` nor `/`: no
/// notation has an escape for them.
std::size_t plainPrefix(std::string_view text);

bool isWellFormed(std::string_view text);

/// Appends `codePoint`, at most U+10FFFF, encoded; that of a surrogate is not well-formed.
void append(std::string& text, char32_t codePoint);

/// Stands for each malformed sequence when a text must be well-formed: U+FFFD.
inline constexpr std::string_view replacementCharacter = "\xEF\xBF\xBD";

}  // namespace kivo::platform::UTF8
