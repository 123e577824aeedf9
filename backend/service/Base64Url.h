#pragma once

#include <string>
#include <string_view>

namespace kivo::backend {

/// Base64 in the URL alphabet without padding, as in JSON Web Tokens.
std::string base64UrlEncode(std::string_view bytes);

/// Decodes the output of base64UrlEncode; any other text gives unspecified bytes.
std::string base64UrlDecode(std::string_view text);

}  // namespace kivo::backend
