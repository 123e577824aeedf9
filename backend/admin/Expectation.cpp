#include "backend/admin/Expectation.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "backend/base/Number.h"
#include "backend/service/Endpoints.h"

namespace kivo::backend {

namespace {

constexpr const char* example = "expect 'user/update-device-token deviceToken=X status=200'";

std::vector<std::string> wordsIn(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) words.push_back(word);
    return words;
}

std::string requireEndpoint(const std::string& name) {
    if (endpointNamed(name) || imageAt("/" + name)) return name;
    throw std::invalid_argument("\"" + name + "\" is not an endpoint; choose one of " +
                                endpointNames() + "img/NAME");
}

int statusIn(const std::string& text) {
    const auto status = parseNumber<int>(text).value_or(0);
    if (status >= 100) return status;
    throw std::invalid_argument("\"" + text + "\" is not a status; write it like status=401");
}

void addCondition(Expectation& expectation, const std::string& word) {
    const auto equals = word.find('=');
    if (equals == 0 || equals == word.npos)
        throw std::invalid_argument("\"" + word + "\" is not KEY=VALUE; write it like: " + example);
    const auto key = word.substr(0, equals);
    const auto value = word.substr(equals + 1);
    if (key == "status") {
        expectation.status = statusIn(value);
    } else {
        expectation.fields[key] = value;
    }
}

bool holds(const nlohmann::json& body, const std::string& key, const std::string& value) {
    return body.is_object() && body.contains(key) && body[key] == value;
}

}  // namespace

Expectation parseExpectation(std::vector<std::string> words) {
    if (words.size() == 1) words = wordsIn(words.front());
    if (words.empty())
        throw std::invalid_argument(std::string("the endpoint is missing; write it like: ") +
                                    example);
    Expectation expectation{.endpoint = requireEndpoint(words.front())};
    for (std::size_t index = 1; index < words.size(); ++index)
        addCondition(expectation, words[index]);
    return expectation;
}

bool isForEndpoint(const Entry& entry, const Expectation& expectation) {
    const auto path = entry.exchange.request.path();
    if (const auto* endpoint = endpointAt(path)) return endpoint->name == expectation.endpoint;
    return imageAt(path) && path.substr(1) == expectation.endpoint;
}

bool meets(const Entry& entry, const Expectation& expectation) {
    if (!isForEndpoint(entry, expectation)) return false;
    if (expectation.status.value_or(entry.exchange.reply.status) != entry.exchange.reply.status)
        return false;
    const auto body = nlohmann::json::parse(entry.exchange.request.body, nullptr, false);
    return std::ranges::all_of(expectation.fields, [&](const auto& field) {
        return holds(body, field.first, field.second);
    });
}

}  // namespace kivo::backend
