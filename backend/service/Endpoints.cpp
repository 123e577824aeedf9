#include "backend/service/Endpoints.h"

#include <algorithm>
#include <stdexcept>

namespace kivo::backend {

namespace {

constexpr std::string_view root = "/api/communication/";
constexpr std::string_view images = "/img/";

/// A base URL may have its own path, which ends before our slash.
bool isBasePath(std::string_view text) { return !text.ends_with('/'); }

bool isEndOf(const Endpoint& endpoint, std::string_view text) {
    const auto path = std::string(root) + std::string(endpoint.name);
    if (text.empty() || !path.ends_with(text)) return false;
    const auto start = path.size() - text.size();
    return text.front() == '/' || path[start - 1] == '/' || path[start - 1] == '-';
}

std::string namesEndingIn(std::string_view text) {
    std::string names;
    for (const auto& endpoint : endpoints())
        if (isEndOf(endpoint, text)) names.append(names.empty() ? "" : ", ").append(endpoint.name);
    return names;
}

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

std::string endpointMeant(std::string_view text, const std::string& others) {
    if (const auto* endpoint = endpointNamed(text)) return std::string(endpoint->name);
    if (const auto* endpoint = endpointAt(text)) return std::string(endpoint->name);
    const auto names = namesEndingIn(text);
    if (endpointNamed(names)) return names;
    const auto subject = "\"" + std::string(text) + "\" ";
    if (!names.empty())
        throw std::invalid_argument(subject + "is the end of several endpoints: " + names);
    throw std::invalid_argument(subject + "is not an endpoint; choose one of " + endpointNames() +
                                others);
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

std::string_view groupAt(std::string_view path) {
    if (imageAt(path)) return "img";
    const auto* endpoint = endpointAt(path);
    return endpoint ? endpoint->name : "";
}

std::optional<std::string_view> imageAt(std::string_view path) {
    if (path.size() <= images.size() || !path.starts_with(images)) return std::nullopt;
    return path.substr(images.size());
}

}  // namespace kivo::backend
