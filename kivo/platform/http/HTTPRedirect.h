#pragma once

#include <optional>
#include <string_view>

#include "kivo/platform/url/URLRequest.h"

namespace kivo::platform {

inline constexpr int maximumRedirects = 20;

/// The request that follows a reply of `status` with the absolute address `location`, or nothing if
/// that reply is the final answer. Within one origin a request keeps its headers. Only a bare GET
/// may go to another origin, so neither a body nor a header of the caller's ever reaches a host
/// that the caller did not choose.
std::optional<URLRequest> redirectedRequest(const URLRequest& request, int status,
                                            std::string_view location);

}  // namespace kivo::platform
