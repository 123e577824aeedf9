#include "backend/run/ChildEnvironment.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "backend/admin/AdminPort.h"

namespace kivo::backend {

namespace {

/// Where OpenSSL and the curl tool look for trusted certificates.
constexpr std::array trustVariables{"SSL_CERT_FILE", "CURL_CA_BUNDLE"};
constexpr std::array proxyVariables{"http_proxy", "HTTP_PROXY", "https_proxy", "HTTPS_PROXY",
                                    "all_proxy",  "ALL_PROXY",  "no_proxy",    "NO_PROXY"};

bool isReplaced(std::string_view variable) {
    const auto name = variable.substr(0, variable.find('='));
    return std::ranges::count(proxyVariables, name) + std::ranges::count(trustVariables, name) >
               0 ||
           name == adminPortVariable;
}

}  // namespace

std::vector<std::string> childEnvironment(std::vector<std::string> inherited,
                                          const BackendAddress& backend) {
    std::erase_if(inherited, isReplaced);
    const auto proxy = "http://127.0.0.1:" + std::to_string(backend.port);
    for (const auto* name : {"https_proxy=", "HTTPS_PROXY="}) inherited.push_back(name + proxy);
    for (const std::string name : trustVariables)
        inherited.push_back(name + "=" + backend.trustFile);
    if (backend.adminPort)
        inherited.push_back(std::string(adminPortVariable) + "=" +
                            std::to_string(*backend.adminPort));
    return inherited;
}

std::vector<std::string> ownEnvironment() {
    std::vector<std::string> variables;
    for (char** variable = environ; variable && *variable; ++variable)
        variables.emplace_back(*variable);
    return variables;
}

}  // namespace kivo::backend
