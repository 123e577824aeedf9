#pragma once

#include <string>

#include "kivo/platform/url/URLRequest.h"

namespace kivo {

/// A copy of `request` with the bearer token added; an earlier token stays beside it. An empty
/// token is not treated specially and yields "Bearer ".
inline platform::URLRequest newRequest(platform::URLRequest request, const std::string& token) {
    request.addValue("Bearer " + token, "Authorization");
    return request;
}

}  // namespace kivo
