#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kivo::platform::UTF8 {

/// The sequence at the front of a text: one encoded code point, or the longest prefix of a
/// truncated or malformed one.
struct Sequence {
    std::size_t length;
    bool isWellFormed;
};

/// The sequence at the front of `text`, which must not be empty.
Sequence firstSequence(std::string_view text);

/// The number of leading characters that are printable ASCII other than `"`, `\` and `/`. No output
/// format escapes them.
std::size_t plainPrefix(std::string_view text);

bool isWellFormed(std::string_view text);

/// Appends `codePoint`, at most U+10FFFF, encoded; that of a surrogate is not well-formed.
void append(std::string& text, char32_t codePoint);

/// Appends `text` between quotation marks. `appendEscaped` appends each well-formed sequence that a
/// format might escape; malformed ones are replaced.
void appendQuoted(std::string& output, std::string_view text,
                  void (*appendEscaped)(std::string& output, std::string_view sequence));

/// U+FFFD, which replaces a malformed sequence where a text must be well-formed.
inline constexpr std::string_view replacementCharacter = "\xEF\xBF\xBD";

}  // namespace kivo::platform::UTF8
