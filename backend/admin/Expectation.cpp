#include "backend/admin/Expectation.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "backend/base/Number.h"
#include "backend/journal/ContractBody.h"
#include "backend/journal/Secrets.h"
#include "backend/service/Endpoints.h"

namespace kivo::backend {

namespace {

using nlohmann::json;
using Words = std::vector<std::string>;

constexpr const char* example = "expect 'user/update-device-token deviceToken=X status=200'";
constexpr const char* separator = "then";

[[noreturn]] void reject(const std::string& what) {
    throw std::invalid_argument(what + "; write it like: " + example);
}

/// Splits at spaces; quotes of either kind hold a word together.
Words wordsIn(const std::string& text) {
    Words words;
    char quote = '\0';
    bool within = false;
    for (const char letter : text) {
        const bool isQuote = quote ? letter == quote : letter == '"' || letter == '\'';
        const bool isSpace = letter == ' ' && !quote;
        if (!isSpace && !std::exchange(within, true)) words.emplace_back();
        if (isQuote)
            quote = quote ? '\0' : letter;
        else if (isSpace)
            within = false;
        else
            words.back() += letter;
    }
    if (quote) reject("a quote in " + inQuotes(text) + " has no end");
    return words;
}

std::vector<Words> splitAtThen(const Words& words) {
    std::vector<Words> parts(1);
    for (const auto& word : words) {
        if (word == separator)
            parts.emplace_back();
        else
            parts.back().push_back(word);
    }
    return parts;
}

std::string requireEndpoint(const std::string& name) {
    return imageAt("/" + name) ? name : endpointMeant(name, "or img/NAME");
}

int statusIn(const std::string& text) {
    const auto status = parseNumber<int>(text).value_or(0);
    if (status >= 100) return status;
    throw std::invalid_argument("\"" + text + "\" is not a status; write it like status=401");
}

void addCondition(Expectation& expectation, const std::string& word) {
    const auto equals = word.find('=');
    const bool isNumber = parseNumber<unsigned>(word).has_value();
    if (isNumber)
        throw std::invalid_argument("\"" + word +
                                    "\" is not KEY=VALUE; did you mean status=" + word + "?");
    if (equals == 0 || equals == word.npos) reject("\"" + word + "\" is not KEY=VALUE");
    const auto key = word.substr(0, equals);
    const auto value = word.substr(equals + 1);
    if (key == "status") {
        expectation.status = statusIn(value);
    } else {
        expectation.fields[key] = value;
    }
}

/// How the member differs; empty if it does not.
std::string difference(const json& body, const std::string& key, const std::string& expected,
                       bool showSecrets) {
    const auto member = body.find(key);
    if (member == body.end()) return "the body has no " + inQuotes(key);
    if (*member == expected) return {};
    if (!member->is_string()) return inQuotes(key) + " is not a string";
    if (isSecret(key) && !showSecrets)
        return inQuotes(key) + " is different (a secret, which serve and run --show-secrets show)";
    return inQuotes(key) + " is " + inQuotes(member->get_ref<const std::string&>()) + ", not " +
           inQuotes(expected);
}

}  // namespace

std::vector<Words> splitExpectations(const Words& words) {
    std::vector<Words> expectations;
    for (const auto& part : splitAtThen(words)) {
        const auto expanded = part.size() == 1 ? wordsIn(part.front()) : part;
        for (const auto& each : splitAtThen(expanded)) {
            if (each.empty()) reject("the endpoint is missing");
            expectations.push_back(each);
        }
    }
    return expectations;
}

Expectation parseExpectation(const Words& words) {
    if (words.empty()) reject("the endpoint is missing");
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

std::vector<std::string> differences(const Entry& entry, const Expectation& expectation,
                                     bool showSecrets) {
    std::vector<std::string> found;
    const auto status = entry.exchange.reply.status;
    if (expectation.status.value_or(status) != status)
        found.push_back("the status is " + std::to_string(status) + ", not " +
                        std::to_string(*expectation.status));
    if (expectation.fields.empty()) return found;
    const auto body = json::parse(entry.exchange.request.body, nullptr, false);
    if (!body.is_object()) {
        found.emplace_back("the body is not a JSON object");
        return found;
    }
    for (const auto& [key, value] : expectation.fields)
        if (auto text = difference(body, key, value, showSecrets); !text.empty())
            found.push_back(std::move(text));
    return found;
}

bool meets(const Entry& entry, const Expectation& expectation) {
    return isForEndpoint(entry, expectation) && differences(entry, expectation, false).empty();
}

}  // namespace kivo::backend
