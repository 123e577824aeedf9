#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "backend/desk/Desk.h"

namespace kivo::backend {

/// The options that serve and run share.
struct CommonOptions {
    /// serve() and run() fill in its identity and its callbacks.
    DeskOptions desk = {};
    /// Absent: no admin server.
    std::optional<std::uint16_t> adminPort = {};
    /// Exit with a failure if a request broke the contract.
    bool strict = false;
    /// The hosts that it answers for as a proxy.
    std::vector<std::string> baseUrls = {};
    /// "NAME" or "NAME:PORT", in addition to the base URLs.
    std::vector<std::string> hosts = {};
};

}  // namespace kivo::backend
