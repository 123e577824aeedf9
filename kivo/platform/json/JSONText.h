#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "kivo/platform/base/Data.h"

/// How texts are escaped in JSON.
namespace kivo::platform::JSON {

/// Appends `text` quoted and escaped; malformed UTF-8 becomes U+FFFD.
void append(Data& output, std::string_view text);

/// The text whose escaped form is `quoted`, without the quotes; none if that holds a raw control
/// character, an unknown escape, half of a surrogate pair, or bytes that are not UTF-8.
std::optional<std::string> unescaped(std::string_view quoted);

}  // namespace kivo::platform::JSON
