#pragma once

#include <string>

namespace kivo::backend {

/// A line about a request or connection in colours: the time grey, the status by its class, what
/// broke the contract red, a fault yellow.
std::string coloured(const std::string& line);

/// The same if standard output shows colours; otherwise the line as it is.
std::string forOutput(const std::string& line);

}  // namespace kivo::backend
