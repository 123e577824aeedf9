#pragma once

#include <string>
#include <string_view>

namespace kivo::backend {

/// A PNG image of one pixel, whose colour depends on the name.
std::string tinyImage(std::string_view name);

}  // namespace kivo::backend
