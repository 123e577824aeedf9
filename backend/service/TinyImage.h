#pragma once

#include <string>
#include <string_view>

namespace kivo::backend {

/// A PNG picture of one pixel, in a colour that depends on the name.
std::string tinyImage(std::string_view name);

}  // namespace kivo::backend
