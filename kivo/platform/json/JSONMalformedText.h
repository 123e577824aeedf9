#pragma once

#include <string_view>

#include "kivo/platform/base/Data.h"

namespace kivo::platform::JSON {

/// Stands in a text for what is malformed there: U+FFFF, which is no character.
inline constexpr std::string_view malformedMark = "\xEF\xBF\xBF";

/// `json` with a mark in place of everything malformed within its texts: bytes that are no UTF-8,
/// halves of surrogate pairs, raw control characters. A parser can then pass over the texts that
/// nobody reads.
Data withMalformedTextMarked(std::string_view json);

}  // namespace kivo::platform::JSON
