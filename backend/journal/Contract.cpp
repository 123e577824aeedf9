#include "backend/journal/Contract.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <utility>

#include "backend/service/AuthRead.h"
#include "backend/service/Endpoints.h"

namespace kivo::backend {

namespace {

using Violations = std::vector<std::string>;

struct IdentityHeader {
    std::string_view name;
    std::string_view value;  ///< Empty when it varies.
    bool mayBeEmpty = false;
};

constexpr std::array<IdentityHeader, 6> identityHeaders{{
    {"Content-Type", "application/json"},
    {"x-sdk-version", "1.0.0"},
    {"x-platform", "IOS"},
    {"x-package-name", ""},
    {"x-session-id", "", true},
    {"x-unique-device-id", "", true},
}};

/// Printable, whatever the client sent.
std::string shown(std::string_view text) {
    constexpr std::size_t limit = 60;
    std::string safe(text.substr(0, limit));
    std::ranges::replace_if(safe, [](char letter) { return letter < ' ' || letter > '~'; }, '?');
    return "\"" + safe + (text.size() > limit ? "…\"" : "\"");
}

void checkMethod(const Request& request, const Endpoint& endpoint, Violations& violations) {
    if (request.method == endpoint.method) return;
    violations.push_back("the method is " + shown(request.method) + "; it must be " +
                         std::string(endpoint.method));
}

void checkHeader(const Request& request, const IdentityHeader& header, Violations& violations) {
    const std::string name(header.name);
    const auto values = request.values(name);
    if (values.empty()) return violations.push_back(name + " is missing");
    if (values.size() > 1)
        return violations.push_back(name + " appears " + std::to_string(values.size()) +
                                    " times; it must appear once");
    if (!header.value.empty() && values.front() != header.value)
        violations.push_back(name + " is " + shown(values.front()) + "; it must be " +
                             shown(header.value));
    else if (values.front().empty() && !header.mayBeEmpty)
        violations.push_back(name + " is empty");
}

void checkToken(const std::string& token, TokenKind expected, Violations& violations) {
    const std::string right = nameOf(expected);
    if (token.empty())
        return static_cast<void>(violations.emplace_back(
            "a bearer value has no token, as after a refresh that returned an empty one"));
    const auto claims = readClaims(token);
    if (claims && claims->kind != expected)
        violations.push_back("Authorization carries " + std::string(nameOf(claims->kind)) +
                             " token " + shown(claims->name) + " instead of a " + right + " token");
}

/// A resent request carries the refused user tokens before the new one: that is how the SDK
/// refreshes. User authentication starts from the original request each time and carries one.
void checkBearers(const Request& request, const Endpoint& endpoint, Violations& violations) {
    const auto lines = request.values("Authorization").size();
    const auto tokens = bearerTokens(request);
    if (!endpoint.bearer) {
        if (lines > 0) violations.emplace_back("Authorization must not be sent");
        return;
    }
    const std::string right = nameOf(*endpoint.bearer);
    if (lines == 0)
        return violations.push_back("Authorization is missing; it must carry a " + right +
                                    " token");
    if (lines > 1)
        violations.push_back("Authorization appears in " + std::to_string(lines) +
                             " lines; its values must be in one, joined by commas");
    if (tokens.size() > 1 && endpoint.bearer == TokenKind::merchant)
        violations.push_back("Authorization carries " + std::to_string(tokens.size()) +
                             " merchant tokens; it must carry one");
    for (const auto& token : tokens) checkToken(token, *endpoint.bearer, violations);
}

void checkMembers(const nlohmann::json& body, const Endpoint& endpoint, Violations& violations) {
    for (const auto key : endpoint.keys) {
        const auto member = body.find(std::string(key));
        if (member == body.end())
            violations.push_back("the body lacks " + shown(key));
        else if (!member->is_string())
            violations.push_back(shown(key) + " in the body is not a string");
    }
    for (const auto& [key, value] : body.items()) {
        if (std::ranges::find(endpoint.keys, key) != endpoint.keys.end()) continue;
        return violations.push_back("the body has the unexpected member " + shown(key));
    }
}

void checkBody(const Request& request, const Endpoint& endpoint, Violations& violations) {
    const auto body = nlohmann::json::parse(request.body, nullptr, false);
    if (!body.is_object())
        return static_cast<void>(violations.emplace_back("the body is not a JSON object"));
    checkMembers(body, endpoint, violations);
    const auto permission = body.find("permission");
    if (endpoint.name == "user/update-notification-consent" && permission != body.end() &&
        *permission != "GRANTED" && *permission != "DENIED")
        violations.emplace_back("\"permission\" in the body must be GRANTED or DENIED");
}

}  // namespace

std::vector<std::string> contractViolations(const Request& request) {
    Violations violations;
    const auto* endpoint = endpointAt(request.path());
    if (!endpoint) return violations;
    checkMethod(request, *endpoint, violations);
    for (const auto& header : identityHeaders) checkHeader(request, header, violations);
    checkBearers(request, *endpoint, violations);
    checkBody(request, *endpoint, violations);
    const auto repeated = std::ranges::unique(violations);
    violations.erase(repeated.begin(), repeated.end());
    return violations;
}

}  // namespace kivo::backend
