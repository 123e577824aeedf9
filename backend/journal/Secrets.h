#pragma once

#include <string>
#include <string_view>

#include "backend/http/Header.h"

namespace kivo::backend {

/// Enough of a secret to tell it from another, too little to use it.
std::string shortened(std::string_view secret);

/// The header with its value shortened if that is a secret.
Header withoutSecrets(const Header& header);

/// A body with its tokens and keys shortened. What is no JSON object, or one nested beyond all
/// sense, loses every long word that looks like a token.
std::string withoutSecrets(const std::string& body);

}  // namespace kivo::backend
