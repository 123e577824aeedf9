#include "backend/Service.h"

#include "backend/Envelope.h"
#include "backend/TinyImage.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

namespace kivo::backend {
namespace {

constexpr std::size_t rememberedSessions = 256;
constexpr std::string_view images = "/img/";

/// The token in the last of all bearer values; empty when that value is no bearer.
std::string bearerToken(const Request& request) {
    const auto values = request.values("Authorization");
    if (values.empty()) return {};
    std::string_view last = values.back();
    if (const auto comma = last.rfind(','); comma != last.npos) last.remove_prefix(comma + 1);
    last.remove_prefix(std::min(last.find_first_not_of(' '), last.size()));
    constexpr std::string_view scheme = "Bearer ";
    return last.starts_with(scheme) ? std::string(last.substr(scheme.size())) : std::string();
}

std::string explain(TokenState state, TokenKind kind) {
    const std::string name = kind == TokenKind::merchant ? "merchant token" : "user token";
    switch (state) {
        case TokenState::missing: return "the " + name + " is missing";
        case TokenState::expired: return "the " + name + " has expired";
        default: return "this is no valid " + name;
    }
}

Reply unauthorized(const std::string& message) {
    auto reply = refusal(401, message);
    reply.headers.push_back({.name = "WWW-Authenticate", .value = "Bearer"});
    return reply;
}

Reply wrongMethod(std::string_view allowed) {
    auto reply = refusal(405, "this path is for " + std::string(allowed));
    reply.headers.push_back({.name = "Allow", .value = std::string(allowed)});
    return reply;
}

Reply done(const std::string& message) {
    return replyWith(200, {.message = message, .data = {{"message", message}}});
}

Reply image(const Request& request) {
    if (request.method != "GET") return wrongMethod("GET");
    return {.headers = {{.name = "Content-Type", .value = "image/png"}},
            .body = tinyImage(request.path().substr(images.size()))};
}

/// The object's text values; nothing when the body is no JSON object.
std::optional<std::map<std::string, std::string>> textFields(const std::string& body) {
    const auto json = nlohmann::json::parse(body, nullptr, false);
    if (!json.is_object()) return std::nullopt;
    std::map<std::string, std::string> fields;
    for (const auto& [name, value] : json.items()) {
        if (value.is_string()) fields[name] = value.get<std::string>();
    }
    return fields;
}

}  // namespace

struct Service::Endpoint {
    std::string_view path;
    std::string_view method;
    std::optional<TokenKind> bearer;
    std::vector<std::string> keys;
    Reply (Service::*serve)(const Fields&, const std::string&);
};

const std::vector<Service::Endpoint>& Service::endpoints() {
    static const std::vector<Endpoint> table{
        {"/api/communication/sdk/authenticate",
         "POST",
         std::nullopt,
         {"apiKey"},
         &Service::authenticateSdk},
        {"/api/communication/user/authenticate",
         "POST",
         TokenKind::merchant,
         {"countryCode", "phone", "email", "name"},
         &Service::authenticateUser},
        {"/api/communication/user/update-device-token",
         "POST",
         TokenKind::user,
         {"deviceToken"},
         &Service::updateDeviceToken},
        {"/api/communication/user/update-notification-consent",
         "POST",
         TokenKind::user,
         {"permission"},
         &Service::updateConsent},
        {"/api/communication/user/unset",
         "PUT",
         TokenKind::user,
         {"sessionId"},
         &Service::unsetUser},
    };
    return table;
}

Service::Service(const Lifetimes& lifetimes, Clock clock) : tokens_(lifetimes, std::move(clock)) {}

Reply Service::answer(const Request& request) {
    const auto path = request.path();
    if (path.size() > images.size() && path.starts_with(images)) return image(request);
    const auto endpoint = std::ranges::find(endpoints(), path, &Endpoint::path);
    if (endpoint == endpoints().end()) return refusal(404, "there is nothing at this path");
    if (request.method != endpoint->method) return wrongMethod(endpoint->method);
    const std::lock_guard lock(mutex_);
    return serve(*endpoint, request);
}

Reply Service::serve(const Endpoint& endpoint, const Request& request) {
    std::string sessionId;
    if (endpoint.bearer) {
        auto verdict = tokens_.check(*endpoint.bearer, bearerToken(request));
        if (verdict.state != TokenState::valid) {
            return unauthorized(explain(verdict.state, *endpoint.bearer));
        }
        sessionId = std::move(verdict.sessionId);
    }
    const auto fields = textFields(request.body);
    if (!fields) return refusal(400, "the body is no JSON object");
    for (const auto& key : endpoint.keys) {
        if (!fields->contains(key))
            return refusal(400, "the body has no text under \"" + key + "\"");
    }
    return (this->*endpoint.serve)(*fields, sessionId);
}

Reply Service::authenticateSdk(const Fields& fields, const std::string&) {
    const std::string id = "S" + std::to_string(++opened_);
    sessions_.push_back({.id = id, .apiKey = fields.at("apiKey")});
    if (sessions_.size() > rememberedSessions) sessions_.pop_front();
    const auto token = tokens_.issue(TokenKind::merchant, id);
    return replyWith(200, {.message = "SDK authenticated",
                           .data = {{"merchantToken", token}, {"sessionId", id}}});
}

Reply Service::authenticateUser(const Fields& fields, const std::string& sessionId) {
    if (auto* session = find(sessionId)) session->user = fields;
    const auto token = tokens_.issue(TokenKind::user, sessionId);
    return replyWith(200, {.message = "user authenticated", .data = {{"userToken", token}}});
}

Reply Service::updateDeviceToken(const Fields& fields, const std::string& sessionId) {
    if (auto* session = find(sessionId)) session->deviceToken = fields.at("deviceToken");
    return done("device token updated");
}

Reply Service::updateConsent(const Fields& fields, const std::string& sessionId) {
    const auto& permission = fields.at("permission");
    if (permission != "GRANTED" && permission != "DENIED") {
        return refusal(400, "\"permission\" is neither GRANTED nor DENIED");
    }
    if (auto* session = find(sessionId)) session->permission = permission;
    return done("notification consent updated");
}

Reply Service::unsetUser(const Fields&, const std::string& sessionId) {
    if (auto* session = find(sessionId)) session->user.clear();
    return done("user unset");
}

Session* Service::find(const std::string& sessionId) {
    const auto session = std::ranges::find(sessions_, sessionId, &Session::id);
    return session == sessions_.end() ? nullptr : &*session;
}

std::vector<Session> Service::sessions() const {
    const std::lock_guard lock(mutex_);
    return {sessions_.begin(), sessions_.end()};
}

}  // namespace kivo::backend
