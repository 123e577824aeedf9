#pragma once

#include <cstdint>

namespace kivo::backend {

/// The default port for admin requests.
inline constexpr std::uint16_t defaultAdminPort = 8444;

/// The environment variable that overrides it.
inline constexpr const char* adminPortVariable = "KIVO_DEV_ADMIN_PORT";

/// The value of the Server header in admin replies.
inline constexpr const char* adminServerName = "kivo-dev";

}  // namespace kivo::backend
