#include "backend/admin/Admin.h"

#include <nlohmann/json.hpp>

#include <array>
#include <optional>
#include <stdexcept>
#include <utility>

#include "backend/admin/AdminContext.h"
#include "backend/admin/AdminPort.h"
#include "backend/admin/Events.h"
#include "backend/admin/Expectation.h"
#include "backend/admin/Page.h"
#include "backend/admin/Query.h"
#include "backend/admin/Records.h"
#include "backend/base/HostAndPort.h"
#include "backend/base/Number.h"
#include "backend/desk/Desk.h"
#include "backend/journal/RequestLine.h"
#include "backend/service/Envelope.h"

namespace kivo::backend {

namespace {

using nlohmann::json;
constexpr std::uint16_t anyPort = 80;

json bodyOf(const Request& request) {
    auto body = json::parse(request.body.empty() ? "{}" : request.body, nullptr, false);
    if (!body.is_object()) throw std::invalid_argument("the body is not a JSON object");
    return body;
}

json state(Desk& desk, const Request&) { return stateOf(desk); }

json requests(Desk& desk, const Request& request) {
    const auto after = parseNumber<std::uint64_t>(queryValue(request, "after")).value_or(0);
    json list = json::array();
    for (const auto& entry : desk.journal().after(after))
        if (entry.kind == EntryKind::request) list.push_back(recordOf(entry, desk.showsSecrets()));
    return {{"requests", list}};
}

json faults(Desk& desk, const Request&) { return {{"faults", recordsOf(desk.faults().list())}}; }

json addFault(Desk& desk, const Request& request) {
    const auto fault = parseFault(bodyOf(request).value("rule", ""));
    desk.addFault(fault);
    return {{"added", ruleOf(fault)}};
}

json clearFaults(Desk& desk, const Request& request) {
    const auto body = bodyOf(request);
    if (!body.contains("rule")) return {{"cleared", desk.faults().clear()}};
    return {{"cleared", desk.faults().clear(body.at("rule").get<std::string>())}};
}

json expire(Desk& desk, const Request& request) {
    const auto kind = bodyOf(request).value("kind", "");
    if (kind != "user" && kind != "merchant" && kind != "all")
        throw std::invalid_argument("the kind must be user, merchant or all, not \"" + kind + "\"");
    std::optional<TokenKind> meant;
    if (kind != "all") meant = kind == "user" ? TokenKind::user : TokenKind::merchant;
    desk.expire(meant);
    return {{"expired", kind}};
}

json setLatency(Desk& desk, const Request& request) {
    desk.setLatency(Latency::parse(bodyOf(request).value("latency", "")));
    return {{"latency", desk.latency().text()}};
}

json reset(Desk& desk, const Request&) {
    desk.reset();
    return {{"reset", true}};
}

json addImage(Desk& desk, const Request& request) {
    const auto name = desk.images().add(queryValue(request, "file"), request.body);
    return {{"url", desk.baseUrl() + "img/" + name}};
}

std::string lineOf(const Entry& entry, const Desk& desk) {
    return requestLine(entry, desk.showsSecrets());
}

/// The line of the first matching request, or else of the newest one to its endpoint.
json checkExpectation(Desk& desk, const Request& request) {
    const auto words = bodyOf(request).value("words", std::vector<std::string>());
    const auto expected = parseExpectation(words);
    const auto entries = desk.journal().after();
    const Entry* newest = nullptr;
    for (const auto& entry : entries) {
        if (meets(entry, expected)) return {{"met", true}, {"line", lineOf(entry, desk)}};
        if (isForEndpoint(entry, expected)) newest = &entry;
    }
    return {{"met", false}, {"line", newest ? lineOf(*newest, desk) : ""}};
}

struct Route {
    std::string_view method;
    std::string_view path;
    json (*handler)(Desk&, const Request&);
};

constexpr std::array routes{
    Route{"GET", "/state", state},           Route{"GET", "/requests", requests},
    Route{"GET", "/faults", faults},         Route{"POST", "/faults", addFault},
    Route{"DELETE", "/faults", clearFaults}, Route{"POST", "/expire", expire},
    Route{"POST", "/latency", setLatency},   Route{"POST", "/reset", reset},
    Route{"POST", "/images", addImage},      Route{"POST", "/expectations", checkExpectation},
};

std::string knownRequests() {
    std::string names = "GET /, GET /events";
    for (const auto& route : routes)
        names.append(", ").append(route.method).append(" ").append(route.path);
    return names;
}

/// Browsers tell what a request is for. A link on another site may lead to the page.
bool isOtherSites(const Request& request) {
    const auto site = request.header("Sec-Fetch-Site");
    return !site.empty() && site != "same-origin" && site != "none" && request.path() != "/";
}

/// A page of another site can make a browser send requests here, through a name of its own that
/// resolves to loopback or with its own origin; both show in the headers.
bool comesFromHere(const Request& request) {
    const auto hosts = request.values("Host");
    if (hosts.size() != 1) return false;
    const auto host = hostAndPort(hosts.front(), anyPort);
    if (!host || !isLoopback(host->host)) return false;
    if (isOtherSites(request)) return false;
    const auto origins = request.values("Origin");
    return origins.empty() || (origins.size() == 1 && origins.front() == "http://" + hosts.front());
}

Reply handle(const Route& route, Desk& desk, const Request& request) {
    try {
        const auto answer = route.handler(desk, request);
        return Reply::json(200, answer.dump(-1, ' ', false, json::error_handler_t::replace));
    } catch (const std::invalid_argument& error) {
        return refusal(400, error.what());
    } catch (const json::exception&) {
        return refusal(400, "a value in the body has the wrong type");
    }
}

Reply answer(AdminContext& context, const Request& request) {
    if (!comesFromHere(request))
        return refusal(
            403, "only programs on this machine may use this port, and no pages of other sites");
    if (request.method == "GET" && request.path() == "/events")
        return followEvents(context, request);
    if (auto file = pageFile(request); file && request.method == "GET") return std::move(*file);
    for (const auto& route : routes) {
        if (route.path == request.path() && route.method == request.method)
            return handle(route, context.desk, request);
    }
    return refusal(404, "there is no admin request " + request.method + " " +
                            std::string(request.path()) + "; known are " + knownRequests());
}

}  // namespace

Reply adminReply(AdminContext& context, const Request& request) {
    auto reply = answer(context, request);
    reply.headers.push_back({.name = "Server", .value = adminServerName});
    reply.headers.push_back({.name = "X-Content-Type-Options", .value = "nosniff"});
    reply.headers.push_back({.name = "Cross-Origin-Resource-Policy", .value = "same-origin"});
    return reply;
}

}  // namespace kivo::backend
