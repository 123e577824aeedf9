#pragma once

#include <any>
#include <map>
#include <string>

namespace kivo {

/// The payload of a remote notification. Text may be held as `std::string`, `std::string_view`,
/// `const char*` or `char*`; what a view or pointer refers to need only live through the call that
/// takes the payload.
using RemoteMessage = std::map<std::string, std::map<std::string, std::any>>;

}  // namespace kivo
