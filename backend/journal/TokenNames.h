#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "backend/http/Reply.h"
#include "backend/http/Request.h"

namespace kivo::backend {

/// A bearer token and its short name, such as M1 or U2.
struct NamedToken {
    std::string name;
    std::string token;
};

/// The name that this backend wrote into the token, whoever signed it; "?" when there is none, and
/// "empty" for the empty token.
std::string tokenName(std::string_view token);

/// The tokens that a request carries, in their order; the first 128 of more.
std::vector<NamedToken> carriedTokens(const Request& request);

/// The token that a reply's envelope brings, if any.
std::vector<NamedToken> givenTokens(const Reply& reply);

}  // namespace kivo::backend
