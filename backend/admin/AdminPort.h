#pragma once

#include <cstdint>

namespace kivo::backend {

/// Where a running backend listens for the other commands, unless told otherwise.
inline constexpr std::uint16_t usualAdminPort = 8444;

/// The environment variable that tells them otherwise.
inline constexpr const char* adminPortVariable = "KIVO_DEV_ADMIN_PORT";

/// What the Server header of its answers says.
inline constexpr const char* adminServerName = "kivo-dev";

}  // namespace kivo::backend
