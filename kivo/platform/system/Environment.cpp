#include "kivo/platform/system/Environment.h"

#include <cerrno>
#include <cstdlib>

namespace kivo::platform {

namespace {

using Path = std::filesystem::path;

std::string variable(const char* name) {
    const char* value = secure_getenv(name);
    return value != nullptr ? value : "";
}

std::optional<std::string> variableIfAny(const char* name) {
    std::string value = variable(name);
    return value.empty() ? std::nullopt : std::optional(std::move(value));
}

std::string firstOf(const char* lowerCase, const char* upperCase) {
    std::string value = variable(lowerCase);
    return value.empty() ? variable(upperCase) : value;
}

std::optional<Path> absolutePath(const char* name) {
    Path path = variable(name);
    return path.is_absolute() ? std::optional(std::move(path)) : std::nullopt;
}

std::optional<Path> directory(const char* name, const std::optional<Path>& home,
                              const char* belowHome) {
    if (auto path = absolutePath(name)) return path;
    return home ? std::optional(*home / belowHome) : std::nullopt;
}

}  // namespace

const Environment& Environment::current() {
    static const Environment& atFirstCall = *new Environment(read());
    return atFirstCall;
}

Environment Environment::read() {
    const auto home = absolutePath("HOME");
    return {.home = home,
            .stateDirectory = directory("XDG_STATE_HOME", home, ".local/state"),
            .dataDirectory = directory("XDG_DATA_HOME", home, ".local/share"),
            .httpProxy = variable("http_proxy"),
            .httpsProxy = firstOf("https_proxy", "HTTPS_PROXY"),
            .allProxy = firstOf("all_proxy", "ALL_PROXY"),
            .noProxy = firstOf("no_proxy", "NO_PROXY"),
            .sslCertFile = variableIfAny("SSL_CERT_FILE"),
            .sslCertDir = variableIfAny("SSL_CERT_DIR"),
            .programName = program_invocation_short_name};
}

const std::string& Environment::proxyFor(std::string_view scheme) const {
    const std::string& own = scheme == "http"    ? httpProxy
                             : scheme == "https" ? httpsProxy
                                                 : allProxy;
    return own.empty() ? allProxy : own;
}

}  // namespace kivo::platform
