#include "backend/journal/Secrets.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>

namespace kivo::backend {

namespace {

using nlohmann::json;
constexpr std::size_t shownAtEachEnd = 4;
constexpr std::size_t longEnoughForBothEnds = 24;
constexpr std::size_t shortestToken = 32;
constexpr int deepest = 32;
constexpr std::string_view scheme = "Bearer";
constexpr std::array<std::string_view, 4> secretKeys{"apiKey", "merchantToken", "userToken",
                                                     "deviceToken"};

bool belongsToToken(char letter) {
    return (letter >= '0' && letter <= '9') || (letter >= 'a' && letter <= 'z') ||
           (letter >= 'A' && letter <= 'Z') || letter == '-' || letter == '_' || letter == '.' ||
           letter == '+' || letter == '=';
}

std::string withoutLongWords(std::string_view text, std::size_t shortest = shortestToken) {
    std::string shown;
    while (!text.empty()) {
        const auto end = std::ranges::find_if_not(text, belongsToToken);
        const auto size = static_cast<std::size_t>(end - text.begin());
        const auto word = text.substr(0, size);
        shown += size < shortest ? std::string(word) : shortened(word);
        if (size < text.size()) shown += text[size];
        text.remove_prefix(std::min(size + 1, text.size()));
    }
    return shown;
}

void shortenIn(json& container) {
    for (auto& [key, value] : container.items()) {
        if (isSecret(key) && value.is_string()) value = shortened(value.get_ref<std::string&>());
        if (value.is_structured()) shortenIn(value);
    }
}

/// Parses JSON; nesting that could exhaust the stack gives null.
json shallowJson(const std::string& text) {
    bool shallow = true;
    const auto measure = [&](int depth, json::parse_event_t, const json&) {
        shallow = shallow && depth <= deepest;
        return shallow;
    };
    auto parsed = json::parse(text, measure, false);
    return shallow ? parsed : json();
}

}  // namespace

std::string shortened(std::string_view secret) {
    if (secret.empty()) return {};
    if (secret.size() <= 2 * shownAtEachEnd) return "…";
    auto start = std::string(secret.substr(0, shownAtEachEnd)) + "…";
    if (secret.size() < longEnoughForBothEnds) return start;
    return start + std::string(secret.substr(secret.size() - shownAtEachEnd));
}

Header withoutSecrets(const Header& header) {
    if (!header.isNamed("Authorization")) return header;
    return {.name = header.name, .value = withoutLongWords(header.value, scheme.size() + 1)};
}

bool isSecret(std::string_view key) {
    return std::ranges::find(secretKeys, key) != secretKeys.end();
}

std::string withoutSecrets(const std::string& body) {
    auto json = shallowJson(body);
    if (!json.is_object()) return withoutLongWords(body);
    shortenIn(json);
    return json.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace kivo::backend
