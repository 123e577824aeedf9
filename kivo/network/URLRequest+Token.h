#pragma once

#include <string>

#include "kivo/platform/url/URLRequest.h"

namespace kivo {

/// A copy of `request` with the bearer token added: beside an earlier one, never in its place. An
/// empty token is not tested for and yields the bare "Bearer ".
inline platform::URLRequest newRequest(platform::URLRequest request, const std::string& token) {
    request.addValue("Bearer " + token, "Authorization");
    return request;
}

}  // namespace kivo
