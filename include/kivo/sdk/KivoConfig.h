#pragma once

#include <string>

namespace kivo {

/// The host's configuration of the framework. Nothing is validated: an empty key is sent as it is.
struct KivoConfig {
    std::string apiKey;
    bool isProduction = false;  ///< True selects the production backend.
};

}  // namespace kivo
