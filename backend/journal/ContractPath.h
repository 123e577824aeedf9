#pragma once

#include <string_view>

namespace kivo::backend {

/// Whether a path that is none of the contract's was meant to be one: it lies in the contract's
/// folder or ends in the name of an endpoint, apart from letter case, repeated slashes, a last
/// slash and percent-encoding.
bool resemblesContract(std::string_view path);

}  // namespace kivo::backend
