#pragma once

#include <string>
#include <string_view>

#include "backend/http/Request.h"

namespace kivo::backend {

/// The value of the first parameter in the request's query if it has that name; otherwise empty.
std::string queryValue(const Request& request, std::string_view name);

}  // namespace kivo::backend
