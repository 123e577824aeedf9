#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kivo::backend {

/// What leads a program to the backend.
struct Route {
    std::uint16_t port = 0;
    std::string trustFile;
    std::optional<std::uint16_t> adminPort = {};
};

/// An environment with the backend as the proxy for https and nothing else of its proxy settings
/// left, the trust file, and the admin port for the commands that the program may call.
std::vector<std::string> childEnvironment(std::vector<std::string> inherited, const Route& route);

/// That of this process.
std::vector<std::string> ownEnvironment();

}  // namespace kivo::backend
