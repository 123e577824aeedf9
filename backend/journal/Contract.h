#pragma once

#include <string>
#include <vector>

#include "backend/http/Request.h"

namespace kivo::backend {

/// What in a request breaks the contract, each in plain words; empty when it keeps it. Requests to
/// paths that are no endpoint break nothing. Several user tokens joined in one Authorization line
/// keep it, since that is how the SDK sends a request again; the bare word "Bearer" breaks it.
std::vector<std::string> contractViolations(const Request& request);

}  // namespace kivo::backend
