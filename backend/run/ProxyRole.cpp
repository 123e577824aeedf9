#include "backend/run/ProxyRole.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "backend/journal/RequestLine.h"
#include "backend/run/ChildEnvironment.h"
#include "backend/run/UpstreamProxies.h"
#include "backend/tls/TrustedAlready.h"

namespace kivo::backend {

namespace {

Interception interceptionOf(const CommonOptions& options) {
    Interception interception;
    for (const auto& url : options.baseUrls) interception.addBaseUrl(url);
    for (const auto& host : options.hosts) interception.addHost(host);
    return interception;
}

/// It may be a host that was meant to be answered here.
std::string adviceOn(const std::string& target) {
    const auto host = hostAndPort(target);
    if (!host || isAddress(host->host) || !isDnsName(host->host)) return "";
    return "; to answer it here: --host " + target;
}

}  // namespace

ProxyRole::ProxyRole(const CommonOptions& options, const RunFolder& folder,
                     const std::string& alsoTrusted, Report report)
    : interception_(interceptionOf(options)),
      authority_(Authority::make(interception_.names())),
      trustFile_(folder.writeTrustFile(trustedAlready() + alsoTrusted + authority_.certificate())),
      report_(std::move(report)) {}

Identity ProxyRole::identity() const {
    auto names = interception_.names();
    std::ranges::copy(loopbackHosts(), std::back_inserter(names));
    return authority_.issue(names);
}

void ProxyRole::direct(DeskOptions& desk) const {
    desk.tunnelPolicy = [this](const std::string& target) {
        return interception_.covers(target) ? TunnelPolicy::intercept : TunnelPolicy::forward;
    };
    desk.onForwarded = [this](const std::string& target) {
        report_("forwards to " + printable(target) + adviceOn(target) + "\n");
    };
    desk.upstreamProxy = upstreamProxies(
        ownEnvironment(), [this](const std::string& warning) { report_(warning + "\n"); });
}

AdminInfo ProxyRole::adminInfo(std::uint16_t port) const {
    return {.hosts = interception_.description(),
            .environment = "https_proxy=http://127.0.0.1:" + std::to_string(port) +
                           " SSL_CERT_FILE=" + trustFile_,
            .trustFile = trustFile_};
}

}  // namespace kivo::backend
