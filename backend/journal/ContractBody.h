#pragma once

#include <string>
#include <string_view>

#include "backend/http/Request.h"
#include "backend/http/Violation.h"
#include "backend/service/Endpoints.h"

namespace kivo::backend {

/// What is wrong with a request's JSON body.
Violations bodyViolations(const Request& request, const Endpoint& endpoint);

/// The text in quotes, printable whatever the client sent, and not too long.
std::string inQuotes(std::string_view text);

}  // namespace kivo::backend
