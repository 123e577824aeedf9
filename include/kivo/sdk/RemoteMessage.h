#pragma once

#include <any>
#include <map>
#include <string>

#include "kivo/platform/HostFlags.h"

namespace kivo {

/// The payload of a remote notification. Text may be held as `std::string`, `std::string_view`,
/// `const char*` or `char*`; the text behind a view or pointer needs to live only until the call
/// that takes the payload returns.
using RemoteMessage = std::map<std::string, std::map<std::string, std::any>>;

}  // namespace kivo
