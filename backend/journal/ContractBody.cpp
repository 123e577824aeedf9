#include "backend/journal/ContractBody.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

namespace kivo::backend {

namespace {

using nlohmann::json;
using Part = Violation::Part;
constexpr std::size_t shownLength = 60;
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

/// A parsed body, and a member that it has twice, of which a parser keeps one without notice.
struct ParsedBody {
    json value;
    std::optional<std::string> repeated;
};

ParsedBody parse(const std::string& text) {
    ParsedBody body;
    std::set<std::string> keys;
    const auto noteKeys = [&](int depth, json::parse_event_t event, const json& parsed) {
        const bool isMember = depth == 1 && event == json::parse_event_t::key;
        if (isMember && !keys.insert(parsed.get<std::string>()).second)
            body.repeated = parsed.get<std::string>();
        return true;
    };
    body.value = json::parse(text, noteKeys, false);
    return body;
}

Violation ofMember(std::string_view key, std::string text) {
    return {Part::member, std::move(text), std::string(key.substr(0, shownLength))};
}

void checkMembers(const json& body, const Endpoint& endpoint, Violations& found) {
    for (const auto key : endpoint.keys) {
        const auto member = body.find(std::string(key));
        if (member == body.end())
            found.push_back(ofMember(key, "the body lacks " + inQuotes(key)));
        else if (!member->is_string())
            found.push_back(ofMember(key, inQuotes(key) + " in the body is not a string"));
    }
    for (const auto& [key, value] : body.items()) {
        if (std::ranges::find(endpoint.keys, key) != endpoint.keys.end()) continue;
        return found.push_back(
            ofMember(key, "the body has the unexpected member " + inQuotes(key)));
    }
}

void checkPermission(const json& body, const Endpoint& endpoint, Violations& found) {
    const auto permission = body.find("permission");
    if (endpoint.name != "user/update-notification-consent" || permission == body.end()) return;
    if (*permission != "GRANTED" && *permission != "DENIED")
        found.push_back(
            ofMember("permission", "\"permission\" in the body must be GRANTED or DENIED"));
}

}  // namespace

std::string inQuotes(std::string_view text) {
    std::string safe(text.substr(0, shownLength));
    std::ranges::replace_if(safe, [](char letter) { return letter < ' ' || letter > '~'; }, '?');
    return "\"" + safe + (text.size() > shownLength ? "…\"" : "\"");
}

Violations bodyViolations(const Request& request, const Endpoint& endpoint) {
    Violations found;
    const auto [body, repeated] = parse(request.body);
    if (!body.is_object()) return {{Part::body, "the body is not a JSON object"}};
    if (request.body.starts_with(byteOrderMark))
        found.push_back({Part::body, "the body begins with a byte order mark"});
    if (repeated)
        found.push_back(
            ofMember(*repeated, "the body has the member " + inQuotes(*repeated) + " twice"));
    checkMembers(body, endpoint, found);
    checkPermission(body, endpoint, found);
    return found;
}

}  // namespace kivo::backend
