#include "backend/faults/BrokenContent.h"

#include <nlohmann/json.hpp>

#include <string>
#include <utility>

#include "backend/base/Number.h"
#include "backend/service/Envelope.h"

namespace kivo::backend {

namespace {

using nlohmann::json;

constexpr const char* reason = "injected fault";

/// The good reply with its JSON object changed.
template <typename Change>
Reply changed(Reply good, const Change& change) {
    auto object = json::parse(good.body, nullptr, false);
    if (!object.is_object()) return good;
    change(object);
    good.body = object.dump(-1, ' ', false, json::error_handler_t::replace);
    return good;
}

template <typename Change>
Reply changedTokens(Reply good, const Change& change) {
    return changed(std::move(good), [&](json& object) {
        if (!object.contains("data") || !object["data"].is_object()) return;
        for (const auto& member : object["data"].items())
            if (member.key().ends_with("Token")) change(member.value());
    });
}

struct StatusArgument {
    int status = 0;
    std::string_view body;
};

StatusArgument readStatus(std::string_view argument) {
    const auto comma = argument.find(',');
    return {.status = parseNumber<int>(argument.substr(0, comma)).value_or(0),
            .body = comma == argument.npos ? "json" : argument.substr(comma + 1)};
}

Reply page(int status) {
    return {.status = status,
            .headers = {{"Content-Type", "text/html"}},
            .body = "<html><body><h1>" + std::to_string(status) + "</h1></body></html>\n"};
}

}  // namespace

Reply unauthorizedByFault(const Request&, Reply, std::string_view) { return unauthorized(reason); }

bool isStatus(std::string_view argument) {
    const auto [status, body] = readStatus(argument);
    return status >= 200 && status <= 599 &&
           (body == "json" || body == "html" || body == "empty" || body == "good");
}

Reply statusByFault(const Request&, Reply good, std::string_view argument) {
    const auto [status, body] = readStatus(argument);
    if (body == "json") return refusal(status, reason);
    if (body == "html") return page(status);
    if (body == "empty") return {.status = status};
    good.status = status;
    return good;
}

Reply emptyToken(const Request&, Reply good, std::string_view) {
    return changedTokens(std::move(good), [](json& token) { token = ""; });
}

Reply lineBreakToken(const Request&, Reply good, std::string_view) {
    return changedTokens(std::move(good), [](json& token) {
        token = token.get<std::string>() + "\r\nx-smuggled: 1";
    });
}

Reply withoutData(const Request&, Reply good, std::string_view) {
    return changed(std::move(good), [](json& object) { object.erase("data"); });
}

Reply refused(const Request&, Reply, std::string_view) { return refusal(200, reason); }

Reply refusedWithData(const Request&, Reply good, std::string_view) {
    return changed(std::move(good), [](json& object) { object["success"] = false; });
}

Reply garbage(const Request&, Reply, std::string_view) {
    return Reply::json(200, std::string("\x00\xFF}{\xC3\x28garbage", 13));
}

Reply truncatedJson(const Request&, Reply good, std::string_view) {
    good.body.resize(good.body.size() / 2);
    return good;
}

Reply wrongTypes(const Request&, Reply good, std::string_view) {
    return changed(std::move(good), [](json& object) {
        object["success"] = "true";
        object["message"] = 1;
        object["data"] = json::array({1});
    });
}

}  // namespace kivo::backend
