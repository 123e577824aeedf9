#include "backend/run/ChildEnvironment.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "backend/admin/AdminPort.h"
#include "backend/run/UpstreamProxies.h"

namespace kivo::backend {

namespace {

/// Where OpenSSL, the curl tool, Python's requests, Node.js, git, Perl's LWP, pip and cargo look
/// for trusted certificates.
constexpr std::array trustVariables{
    "SSL_CERT_FILE",  "CURL_CA_BUNDLE",       "REQUESTS_CA_BUNDLE", "NODE_EXTRA_CA_CERTS",
    "GIT_SSL_CAINFO", "PERL_LWP_SSL_CA_FILE", "PIP_CERT",           "CARGO_HTTP_CAINFO"};
constexpr std::array proxyVariables{"https_proxy", "HTTPS_PROXY"};
/// Without these, Node.js and Perl's LWP ignore the proxy variables.
constexpr std::array proxySwitches{"NODE_USE_ENV_PROXY", "PERL_LWP_ENV_PROXY"};

using Variables = std::vector<std::string>;

void set(Variables& variables, const std::string& name, const std::string& value) {
    std::erase_if(variables,
                  [&](const std::string& variable) { return variable.starts_with(name + "="); });
    variables.push_back(name + "=" + value);
}

/// An entry that covers a host answered here would keep the program from reaching the backend.
void narrowNoProxy(Variables& variables, const BackendAddress& backend) {
    for (const std::string name : {"no_proxy", "NO_PROXY"}) {
        std::string kept;
        for (const auto& entry : entriesOf(valueOf(variables, name)))
            if (!backend.isAnsweredHere || !backend.isAnsweredHere(entry))
                kept += (kept.empty() ? "" : ",") + entry;
        set(variables, name, kept);
        if (kept.empty()) variables.pop_back();
    }
}

}  // namespace

Variables childEnvironment(Variables inherited, const BackendAddress& backend) {
    narrowNoProxy(inherited, backend);
    const auto proxy = "http://127.0.0.1:" + std::to_string(backend.port);
    for (const auto* name : proxyVariables) set(inherited, name, proxy);
    for (const auto* name : proxySwitches) set(inherited, name, "1");
    for (const auto* name : trustVariables) set(inherited, name, backend.trustFile);
    std::erase_if(inherited, [](const std::string& variable) {
        return variable.starts_with(std::string(adminPortVariable) + "=");
    });
    if (backend.adminPort) set(inherited, adminPortVariable, std::to_string(*backend.adminPort));
    if (!backend.stateFolder) return inherited;
    set(inherited, "XDG_STATE_HOME", *backend.stateFolder / "state");
    set(inherited, "XDG_DATA_HOME", *backend.stateFolder / "data");
    return inherited;
}

Variables ownEnvironment() {
    Variables variables;
    for (char** variable = environ; variable && *variable; ++variable)
        variables.emplace_back(*variable);
    return variables;
}

}  // namespace kivo::backend
