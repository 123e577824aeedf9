#pragma once

#include <string>
#include <string_view>

namespace kivo::backend {

/// Base 64 in the alphabet for URLs, without padding, as JSON web tokens use it.
std::string base64UrlEncode(std::string_view bytes);

/// The bytes of a text that base64UrlEncode made; of any other text, unspecified ones.
std::string base64UrlDecode(std::string_view text);

}  // namespace kivo::backend
