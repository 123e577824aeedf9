#include "backend/journal/TokenNames.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <ranges>

#include "backend/service/AuthRead.h"
#include "backend/service/Tokens.h"

namespace kivo::backend {

namespace {

using nlohmann::json;
constexpr const char* unknown = "?";
constexpr std::size_t longestName = 20;
constexpr std::size_t tokenLimit = 128;
constexpr std::size_t longestEnvelope = 64 * 1024;

bool isName(const std::string& text) {
    const auto fits = [](char letter) {
        return (letter >= '0' && letter <= '9') || letter == 'M' || letter == 'U';
    };
    return !text.empty() && text.size() <= longestName && std::ranges::all_of(text, fits);
}

/// The string at a key, or an empty one.
std::string textAt(const json& object, const char* key) {
    if (!object.is_object()) return {};
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

NamedToken named(std::string token) {
    auto name = tokenName(token);
    return {.name = std::move(name), .token = std::move(token)};
}

bool mayBringToken(const std::string& body) {
    return body.size() <= longestEnvelope && body.find("Token\"") != std::string::npos;
}

}  // namespace

std::string tokenName(std::string_view token) {
    if (token.empty()) return "empty";
    const auto claims = readClaims(token);
    return claims && isName(claims->name) ? claims->name : unknown;
}

std::vector<NamedToken> carriedTokens(const Request& request) {
    std::vector<NamedToken> tokens;
    for (auto& token : bearerTokens(request) | std::views::take(tokenLimit))
        tokens.push_back(named(std::move(token)));
    return tokens;
}

std::vector<NamedToken> givenTokens(const Reply& reply) {
    if (!mayBringToken(reply.body)) return {};
    const auto envelope = json::parse(reply.body, nullptr, false);
    if (!envelope.is_object() || !envelope.contains("data")) return {};
    std::vector<NamedToken> tokens;
    for (const auto* key : {"merchantToken", "userToken"}) {
        if (auto token = textAt(envelope["data"], key); !token.empty())
            tokens.push_back(named(std::move(token)));
    }
    return tokens;
}

}  // namespace kivo::backend
