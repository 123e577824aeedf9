#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kivo::backend {

/// How a program reaches the backend.
struct BackendAddress {
    std::uint16_t port = 0;
    std::string trustFile;
    std::optional<std::uint16_t> adminPort = {};
};

/// The environment for a program whose https goes through the backend: no other proxy settings, the
/// trust file, and the admin port for kivo-dev commands that the program calls.
std::vector<std::string> childEnvironment(std::vector<std::string> inherited,
                                          const BackendAddress& backend);

/// The environment of this process.
std::vector<std::string> ownEnvironment();

}  // namespace kivo::backend
