#pragma once

#include <string>
#include <vector>

#include "backend/http/Request.h"

namespace kivo::backend {

/// What breaks the contract in a request, one sentence each; empty if nothing does. Requests to
/// unknown paths break nothing. Several user tokens joined in one Authorization line are allowed,
/// since that is how the SDK resends a request; the bare word "Bearer" is not.
std::vector<std::string> contractViolations(const Request& request);

}  // namespace kivo::backend
