#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "backend/base/HostAndPort.h"

namespace kivo::backend {

/// How a program reaches the backend.
struct BackendAddress {
    std::uint16_t port = 0;
    std::string trustFile;
    std::optional<std::uint16_t> adminPort = {};
    /// A folder for the program's state, in place of the user's.
    std::optional<std::filesystem::path> stateFolder = {};
    /// Whether the backend answers for a host in some no_proxy entry.
    std::function<bool(const std::string& noProxyEntry)> isAnsweredHere = {};
};

/// The environment for a program whose https goes through the backend: the backend as its https
/// proxy, the trust file for the libraries that read a variable of their own, and the admin port
/// for kivo-dev commands that the program calls. Plain http goes where it went before.
std::vector<std::string> childEnvironment(std::vector<std::string> inherited,
                                          const BackendAddress& backend);

/// The environment of this process.
std::vector<std::string> ownEnvironment();

}  // namespace kivo::backend
