#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "backend/http/Request.h"

namespace kivo::backend {

/// The value of the first parameter of that name in the request's query, as it is written there;
/// std::nullopt if there is none.
std::optional<std::string> queryText(const Request& request, std::string_view name);

/// The same for a whole number. Throws std::invalid_argument, with a message for the user, for any
/// other text.
std::optional<std::uint64_t> queryNumber(const Request& request, std::string_view name);

}  // namespace kivo::backend
