#pragma once

#include <string>
#include <vector>

#include "backend/http/Request.h"

namespace kivo::backend {

/// Which of several bearer values counts; real backends differ.
enum class AuthRead { first, last, any };

/// All tokens in a request's Authorization lines, in order, joined ones included. A value that is
/// not a bearer token counts as an empty one.
std::vector<std::string> bearerTokens(const Request& request);

}  // namespace kivo::backend
