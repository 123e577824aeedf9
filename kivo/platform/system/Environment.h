#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace kivo::platform {

/// The environment variables that matter to the platform. They are read once, since a host may
/// change them at any time, and ignored if the process has more privileges than its caller. An
/// empty variable counts as missing.
struct Environment {
    std::optional<std::filesystem::path> home;            ///< Absolute, like the two below.
    std::optional<std::filesystem::path> stateDirectory;  ///< XDG_STATE_HOME, or ~/.local/state.
    std::optional<std::filesystem::path> dataDirectory;   ///< XDG_DATA_HOME, or ~/.local/share.

    std::string httpProxy;  ///< From the lower-case variable only: a CGI server sets
                            ///< HTTP_PROXY from a request header.
    std::string httpsProxy;
    std::string allProxy;
    std::string noProxy;

    std::optional<std::string> sslCertFile;
    std::optional<std::string> sslCertDir;

    std::string programName;

    /// The environment as it was at the first call.
    static const Environment& current();

    /// The environment as it is now.
    static Environment read();

    /// The proxy for URLs of `scheme` (lower case), or "".
    const std::string& proxyFor(std::string_view scheme) const;
};

}  // namespace kivo::platform
