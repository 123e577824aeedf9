#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kivo::backend {

/// Base 64 in the alphabet for URLs, without padding, as JSON web tokens use it.
std::string base64UrlEncode(std::string_view bytes);

/// Nothing when the text is no such encoding.
std::optional<std::string> base64UrlDecode(std::string_view text);

}  // namespace kivo::backend
