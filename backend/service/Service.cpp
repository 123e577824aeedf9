#include "backend/service/Service.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include "backend/service/Envelope.h"
#include "backend/service/TinyImage.h"

namespace kivo::backend {

namespace {

constexpr std::size_t sessionLimit = 256;
constexpr std::size_t textLimit = 4 * 1024;

std::string explain(TokenState state, TokenKind kind) {
    const auto name = nameOf(kind) + std::string(" token");
    switch (state) {
        case TokenState::missing: return "the " + name + " is missing";
        case TokenState::expired: return "the " + name + " has expired";
        default: return "the " + name + " is not valid";
    }
}

Reply wrongMethod(std::string_view allowed) {
    auto reply = refusal(405, "this path requires " + std::string(allowed));
    reply.headers.push_back({.name = "Allow", .value = std::string(allowed)});
    return reply;
}

Reply done(const std::string& message) {
    return replyWith(200, {.message = message, .data = {{"message", message}}});
}

Reply image(std::string_view name, const Request& request) {
    if (request.method != "GET" && request.method != "HEAD") return wrongMethod("GET, HEAD");
    return {.headers = {{.name = "Content-Type", .value = "image/png"}}, .body = tinyImage(name)};
}

/// The object's string members; std::nullopt if the body is not a JSON object.
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

Service::Handler Service::handlerFor(const Endpoint& endpoint) {
    static const std::map<std::string_view, Handler> handlers{
        {"sdk/authenticate", &Service::authenticateSdk},
        {"user/authenticate", &Service::authenticateUser},
        {"user/update-device-token", &Service::updateDeviceToken},
        {"user/update-notification-consent", &Service::updateConsent},
        {"user/unset", &Service::unsetUser},
    };
    return handlers.at(endpoint.name);
}

Service::Service(ServiceOptions options)
    : options_(std::move(options)), tokens_(options_.lifetimes, options_.clock, options_.seed) {}

Reply Service::answer(const Request& request) {
    if (const auto name = imageAt(request.path())) return image(*name, request);
    const auto* endpoint = endpointAt(request.path());
    if (!endpoint) return refusal(404, "there is nothing at this path");
    if (request.method != endpoint->method) return wrongMethod(endpoint->method);
    const Lock lock(mutex_);
    return serve(*endpoint, request);
}

Reply Service::serve(const Endpoint& endpoint, const Request& request) {
    std::string sessionId;
    if (endpoint.bearer) {
        auto verdict = check(*endpoint.bearer, request);
        if (verdict.state != TokenState::valid) {
            return unauthorized(explain(verdict.state, *endpoint.bearer));
        }
        sessionId = std::move(verdict.sessionId);
    }
    const auto fields = textFields(request.body);
    if (!fields) return refusal(400, "the body is not a JSON object");
    Fields known;
    for (const auto name : endpoint.keys) {
        const std::string key(name);
        const auto field = fields->find(key);
        if (field == fields->end()) return refusal(400, "the body has no string \"" + key + "\"");
        known[key] = field->second.substr(0, textLimit);
    }
    return (this->*handlerFor(endpoint))(known, sessionId);
}

TokenVerdict Service::check(TokenKind kind, const Request& request) const {
    const auto tokens = bearerTokens(request);
    if (tokens.empty()) return {.state = TokenState::missing};
    if (options_.authRead == AuthRead::first) return tokens_.check(kind, tokens.front());
    for (const auto& token : tokens) {
        if (options_.authRead == AuthRead::last) break;
        auto verdict = tokens_.check(kind, token);
        if (verdict.state == TokenState::valid) return verdict;
    }
    return tokens_.check(kind, tokens.back());
}

Reply Service::authenticateSdk(const Fields& fields, const std::string&) {
    const std::string id = "S" + std::to_string(++opened_);
    sessions_.push_back({.id = id, .apiKey = fields.at("apiKey")});
    if (sessions_.size() > sessionLimit) sessions_.pop_front();
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
        return refusal(400, "\"permission\" must be GRANTED or DENIED");
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
    const Lock lock(mutex_);
    return {sessions_.begin(), sessions_.end()};
}

std::optional<TokenClaims> Service::issuedClaims(std::string_view token) const {
    const Lock lock(mutex_);
    return tokens_.issuedClaims(token);
}

void Service::expire(std::optional<TokenKind> kind) {
    const Lock lock(mutex_);
    for (const auto each : {TokenKind::merchant, TokenKind::user})
        if (kind.value_or(each) == each) tokens_.expire(each);
}

void Service::reset() {
    const Lock lock(mutex_);
    tokens_ = Tokens(options_.lifetimes, options_.clock, options_.seed);
    sessions_.clear();
    opened_ = 0;
}

}  // namespace kivo::backend
