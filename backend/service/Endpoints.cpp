#include "backend/service/Endpoints.h"

#include <algorithm>

namespace kivo::backend {

namespace {

constexpr std::string_view root = "/api/communication/";
constexpr std::string_view images = "/img/";

/// A base URL may have its own path, which ends before our slash.
bool isBasePath(std::string_view text) { return !text.ends_with('/'); }

}  // namespace

const std::vector<Endpoint>& endpoints() {
    static const std::vector<Endpoint> table{
        {"sdk/authenticate", "POST", std::nullopt, {"apiKey"}},
        {"user/authenticate",
         "POST",
         TokenKind::merchant,
         {"countryCode", "phone", "email", "name"}},
        {"user/update-device-token", "POST", TokenKind::user, {"deviceToken"}},
        {"user/update-notification-consent", "POST", TokenKind::user, {"permission"}},
        {"user/unset", "PUT", TokenKind::user, {"sessionId"}},
    };
    return table;
}

std::string endpointNames() {
    std::string names;
    for (const auto& endpoint : endpoints()) names.append(endpoint.name).append(", ");
    return names;
}

const Endpoint* endpointNamed(std::string_view name) {
    const auto endpoint = std::ranges::find(endpoints(), name, &Endpoint::name);
    return endpoint == endpoints().end() ? nullptr : &*endpoint;
}

const Endpoint* endpointAt(std::string_view path) {
    const auto start = path.rfind(root);
    if (start == path.npos || !isBasePath(path.substr(0, start))) return nullptr;
    return endpointNamed(path.substr(start + root.size()));
}

std::optional<std::string_view> imageAt(std::string_view path) {
    if (path.size() <= images.size() || !path.starts_with(images)) return std::nullopt;
    return path.substr(images.size());
}

}  // namespace kivo::backend
