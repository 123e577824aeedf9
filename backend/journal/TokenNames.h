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

/// The name that this backend wrote into the token; its signature is not checked. "?" if there is
/// no name, "empty" for an empty token.
std::string tokenName(std::string_view token);

/// The tokens that a request carries, in order; at most 128.
std::vector<NamedToken> carriedTokens(const Request& request);

/// The tokens that a reply issues.
std::vector<NamedToken> givenTokens(const Reply& reply);

}  // namespace kivo::backend
