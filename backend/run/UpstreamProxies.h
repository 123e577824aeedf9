#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/http/Server.h"

namespace kivo::backend {

/// Whether an entry of a no_proxy list, such as "example.com", ".example.com:443" or "*", covers
/// the host and port.
bool isCovered(std::string_view entry, const HostAndPort& target);

/// The list without its separators.
std::vector<std::string> entriesOf(std::string_view noProxy);

/// The proxies that the user's environment names for https: where connections go that this backend
/// forwards. Only http:// proxies can be used; others are reported to `warn` and left out.
std::function<std::optional<UpstreamProxy>(const std::string& authority)> upstreamProxies(
    const std::vector<std::string>& environment,
    const std::function<void(const std::string&)>& warn);

/// The value of a variable in "NAME=VALUE" texts; empty if there is none.
std::string valueOf(const std::vector<std::string>& environment, std::string_view name);

}  // namespace kivo::backend
