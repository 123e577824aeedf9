#include "backend/journal/TokenNames.h"

#include <nlohmann/json.hpp>

#include <algorithm>

#include "backend/service/AuthRead.h"

namespace kivo::backend {

namespace {

using nlohmann::json;
constexpr const char* unknown = "?";
constexpr std::size_t tokenLimit = 128;
constexpr std::size_t longestEnvelope = 64 * 1024;

bool mayBringToken(const std::string& body) {
    return body.size() <= longestEnvelope && body.find("Token\"") != std::string::npos;
}

}  // namespace

std::string tokenName(std::string_view token, const std::optional<TokenClaims>& issued) {
    if (token.empty()) return "empty";
    return issued ? issued->name : unknown;
}

std::vector<std::string> carriedTokens(const Request& request) {
    auto tokens = bearerTokens(request);
    tokens.resize(std::min(tokens.size(), tokenLimit));
    return tokens;
}

std::vector<std::string> givenTokens(const Reply& reply) {
    if (!mayBringToken(reply.body)) return {};
    const auto envelope = json::parse(reply.body, nullptr, false);
    if (!envelope.is_object() || !envelope.contains("data")) return {};
    const auto& data = envelope["data"];
    std::vector<std::string> tokens;
    for (const auto* key : {"merchantToken", "userToken"}) {
        if (data.is_object() && data.contains(key) && data[key].is_string())
            tokens.push_back(data[key].get<std::string>());
    }
    return tokens;
}

}  // namespace kivo::backend
