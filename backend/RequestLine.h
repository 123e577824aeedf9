#pragma once

#include "backend/Server.h"

#include <string>

namespace kivo::backend {

/// One line about one exchange: local time, method, path, status and milliseconds. Bytes that a
/// terminal could take for commands are shown as "?".
std::string requestLine(const Exchange& exchange);

}  // namespace kivo::backend
