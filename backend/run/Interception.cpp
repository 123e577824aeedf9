#include "backend/run/Interception.h"

#include <algorithm>
#include <stdexcept>

#include "backend/run/UpstreamProxies.h"

namespace kivo::backend {

namespace {

constexpr std::uint16_t anyPort = 1;
constexpr std::uint16_t httpsPort = 443;

bool isName(const std::string& host) { return !isAddress(host) && isDnsName(host); }

}  // namespace

void Interception::addBaseUrl(std::string_view url) {
    const auto origin = originOf(url);
    if (origin && (isName(origin->host) || isLoopback(origin->host)))
        targets_.push_back({origin->host, origin->port});
}

void Interception::addHost(std::string_view text) {
    auto target = hostAndPort(text, anyPort);
    if (!target || !isName(target->host))
        throw std::invalid_argument(
            "--host takes a DNS name, with or without a port, as in "
            "--host push.example.com, not \"" +
            std::string(text) + "\"");
    const bool everyPort = text.find(':') == text.npos;
    targets_.push_back(
        {std::move(target->host), everyPort ? std::nullopt : std::optional(target->port)});
}

bool Interception::covers(std::string_view authority) const {
    const auto wanted = hostAndPort(authority);
    return wanted && std::ranges::any_of(targets_, [&](const Target& target) {
               return target.host == wanted->host &&
                      target.port.value_or(wanted->port) == wanted->port;
           });
}

bool Interception::isCoveredBy(std::string_view noProxyEntry) const {
    return std::ranges::any_of(targets_, [&](const Target& target) {
        return isCovered(noProxyEntry, {target.host, target.port.value_or(httpsPort)});
    });
}

std::vector<std::string> Interception::names() const {
    std::vector<std::string> names;
    for (const auto& target : targets_) {
        const bool known = isLoopback(target.host) || std::ranges::count(names, target.host) > 0;
        if (!known) names.push_back(target.host);
    }
    return names;
}

std::string Interception::description() const {
    std::string text;
    for (const auto& [host, port] : targets_) {
        text += (text.empty() ? "" : ", ") + host;
        if (port) text += ":" + std::to_string(*port);
    }
    return text;
}

}  // namespace kivo::backend
