#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/service/Tokens.h"

namespace kivo::backend {

/// One of the backend's operations: what a request for it has to look like.
struct Endpoint {
    std::string_view name;  ///< The end of its path, as in "user/unset".
    std::string_view method;
    std::optional<TokenKind> bearer;
    std::vector<std::string_view> keys;  ///< Of the JSON body; each holds text.
};

const std::vector<Endpoint>& endpoints();

/// Their names, each with a comma behind it, for people to read.
std::string endpointNames();

/// nullptr when there is none of that name.
const Endpoint* endpointNamed(std::string_view name);

/// The endpoint that a request's path means, wherever a base URL puts it; nullptr for none.
const Endpoint* endpointAt(std::string_view path);

/// What follows "/img/" in the path of an image; nothing for any other path.
std::optional<std::string_view> imageAt(std::string_view path);

}  // namespace kivo::backend
