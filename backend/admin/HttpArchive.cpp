#include "backend/admin/HttpArchive.h"

#include <boost/beast/http/status.hpp>
#include <nlohmann/json.hpp>

#include <chrono>
#include <string>

#include "backend/journal/RequestLine.h"
#include "backend/journal/Secrets.h"

namespace kivo::backend {

namespace {

using nlohmann::json;
constexpr int unknownSize = -1;

json headersOf(const std::vector<Header>& headers, bool showSecrets) {
    json list = json::array();
    for (const auto& header : headers) {
        const auto shown = showSecrets ? header : withoutSecrets(header);
        list.push_back({{"name", shown.name}, {"value", shown.value}});
    }
    return list;
}

std::string shown(const std::string& body, bool showSecrets) {
    return showSecrets || body.empty() ? body : withoutSecrets(body);
}

std::string typeOf(const std::vector<Header>& headers) {
    const auto types = valuesOf(headers, "Content-Type");
    return types.empty() ? "" : types.front();
}

json requestOf(const Request& request, bool showSecrets) {
    json record{{"method", request.method},
                {"url", "https://" + request.authority + request.target},
                {"httpVersion", "HTTP/1.1"},
                {"cookies", json::array()},
                {"headers", headersOf(request.headers, showSecrets)},
                {"queryString", json::array()},
                {"headersSize", unknownSize},
                {"bodySize", request.body.size()}};
    if (!request.body.empty())
        record["postData"] = {{"mimeType", typeOf(request.headers)},
                              {"text", shown(request.body, showSecrets)}};
    return record;
}

json replyOf(const Reply& reply, bool showSecrets) {
    const auto reason =
        boost::beast::http::obsolete_reason(static_cast<boost::beast::http::status>(reply.status));
    const auto locations = valuesOf(reply.headers, "Location");
    return {{"status", reply.status},
            {"statusText", std::string(reason)},
            {"httpVersion", "HTTP/1.1"},
            {"cookies", json::array()},
            {"headers", headersOf(reply.headers, showSecrets)},
            {"content",
             {{"size", reply.body.size()},
              {"mimeType", typeOf(reply.headers)},
              {"text", shown(reply.body, showSecrets)}}},
            {"redirectURL", locations.empty() ? "" : locations.front()},
            {"headersSize", unknownSize},
            {"bodySize", reply.body.size()}};
}

json entryOf(const Entry& entry, bool showSecrets) {
    const auto spent = std::chrono::duration<double, std::milli>(entry.exchange.duration).count();
    return {{"startedDateTime", isoTime(entry.exchange.request.arrival)},
            {"time", spent},
            {"request", requestOf(entry.exchange.request, showSecrets)},
            {"response", replyOf(entry.exchange.reply, showSecrets)},
            {"cache", json::object()},
            {"timings", {{"send", 0}, {"wait", spent}, {"receive", 0}}},
            {"connection", std::to_string(entry.exchange.request.connection)},
            {"comment", verdictOn(entry)}};
}

}  // namespace

json httpArchive(const std::vector<Entry>& entries, bool showSecrets) {
    json list = json::array();
    for (const auto& entry : entries) list.push_back(entryOf(entry, showSecrets));
    return {{"log",
             {{"version", "1.2"},
              {"creator", {{"name", "kivo-dev"}, {"version", "1"}}},
              {"entries", list}}}};
}

}  // namespace kivo::backend
