#pragma once

#include <string>
#include <vector>

#include "backend/http/Request.h"

namespace kivo::backend {

/// Which of several bearer values a backend goes by; real ones differ.
enum class AuthRead { first, last, any };

/// Every token of a request's Authorization header lines, joined ones too, in order. A value that
/// is no bearer counts as an empty one.
std::vector<std::string> bearerTokens(const Request& request);

}  // namespace kivo::backend
