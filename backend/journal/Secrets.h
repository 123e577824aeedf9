#pragma once

#include <string>
#include <string_view>

#include "backend/http/Header.h"

namespace kivo::backend {

/// Enough of a secret to recognise it, too little to use it.
std::string shortened(std::string_view secret);

/// The header, with its value shortened if it is a secret.
Header withoutSecrets(const Header& header);

/// Whether the value of such a member of a body is a secret.
bool isSecret(std::string_view key);

/// The body with its tokens and keys shortened. In a body that is not a JSON object, or is nested
/// too deeply, every long word that looks like a token is shortened.
std::string withoutSecrets(const std::string& body);

}  // namespace kivo::backend
