#pragma once

#include <optional>
#include <string_view>

#include "kivo/platform/url/URLRequest.h"

namespace kivo::platform {

inline constexpr int maximumRedirects = 20;

/// The request that follows a reply of `status` that names `location` (absolute), or none when that
/// reply is the answer. Within one origin a request keeps its headers; to another one only a bare
/// GET may go, so that neither a body nor a header of the caller's ever reaches a host that the
/// caller did not choose.
std::optional<URLRequest> redirectedRequest(const URLRequest& request, int status,
                                            std::string_view location);

}  // namespace kivo::platform
