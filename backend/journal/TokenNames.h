#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/http/Reply.h"
#include "backend/http/Request.h"
#include "backend/service/Tokens.h"

namespace kivo::backend {

/// The short name of a token, such as M1 or U2: "?" if this backend did not issue it (`issued` is
/// std::nullopt), "empty" for an empty token.
std::string tokenName(std::string_view token, const std::optional<TokenClaims>& issued);

/// The tokens that a request carries, in order; at most 128.
std::vector<std::string> carriedTokens(const Request& request);

/// The tokens that a reply issues, empty ones included.
std::vector<std::string> givenTokens(const Reply& reply);

}  // namespace kivo::backend
