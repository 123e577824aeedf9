#pragma once

#include <string>

namespace kivo::platform {

/// Bytes, of any value.
using Data = std::string;

}  // namespace kivo::platform
