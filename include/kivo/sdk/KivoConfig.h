#pragma once

#include <string>

namespace kivo {

/// What the host sets the framework up with. Nothing is checked: an empty key is sent as it is.
struct KivoConfig {
    std::string apiKey;
    bool isProduction = false;  ///< True selects the production backend.
};

}  // namespace kivo
