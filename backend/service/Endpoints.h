#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/service/Tokens.h"

namespace kivo::backend {

/// One of the backend's operations and what a request for it must look like.
struct Endpoint {
    std::string_view name;  ///< The end of its path, as in "user/unset".
    std::string_view method;
    std::optional<TokenKind> bearer;
    std::vector<std::string_view> keys;  ///< Of the JSON body; each value is a string.
};

const std::vector<Endpoint>& endpoints();

/// All endpoint names, each followed by a comma, for messages.
std::string endpointNames();

/// The full name of the endpoint that the text means: its path or an end of that, cut before a
/// whole word, as in "unset" or "device-token". Throws std::invalid_argument, with a message for
/// the user, unless it means exactly one; `others` tells what the caller understands besides, as in
/// "or img".
std::string endpointMeant(std::string_view text, const std::string& others = "");

/// nullptr if there is no such endpoint.
const Endpoint* endpointNamed(std::string_view name);

/// The endpoint at a path, whatever base path precedes it; nullptr if there is none.
const Endpoint* endpointAt(std::string_view path);

/// The name of the endpoint at a path, "img" for an image, or empty for any other path.
std::string_view groupAt(std::string_view path);

/// The part of an image's path after "/img/"; std::nullopt for any other path.
std::optional<std::string_view> imageAt(std::string_view path);

}  // namespace kivo::backend
