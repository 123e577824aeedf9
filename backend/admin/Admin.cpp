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
#include "backend/admin/ExpectationCheck.h"
#include "backend/admin/Page.h"
#include "backend/admin/Query.h"
#include "backend/admin/Records.h"
#include "backend/admin/RequestFilter.h"
#include "backend/base/HostAndPort.h"
#include "backend/desk/Desk.h"
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

json state(AdminContext& context, const Request&) { return stateOf(context.desk); }

json requests(AdminContext& context, const Request& request) {
    auto& desk = context.desk;
    const auto filter = filterIn(request);
    auto [entries, lost, newest] = desk.journal().after(queryNumber(request, "after").value_or(0));
    json list = json::array();
    for (const auto& entry : filtered(std::move(entries), filter))
        list.push_back(recordOf(entry, desk.showsSecrets()));
    return {{"requests", list},
            {"lost", lost},
            {"newest", newest},
            {"showsSecrets", desk.showsSecrets()}};
}

json faults(AdminContext& context, const Request&) {
    return {{"faults", recordsOf(context.desk.faults().list())}};
}

json addFault(AdminContext& context, const Request& request) {
    const auto fault = parseFault(bodyOf(request).value("rule", ""));
    context.desk.addFault(fault);
    return {{"added", ruleOf(fault)}};
}

json clearFaults(AdminContext& context, const Request& request) {
    const auto body = bodyOf(request);
    std::optional<std::string> rule;
    if (body.contains("rule")) rule = body.at("rule").get<std::string>();
    return {{"cleared", context.desk.clearFaults(rule)}};
}

json expire(AdminContext& context, const Request& request) {
    const auto kind = bodyOf(request).value("kind", "");
    if (kind != "user" && kind != "merchant" && kind != "all")
        throw std::invalid_argument("the kind must be user, merchant or all, not \"" + kind + "\"");
    std::optional<TokenKind> meant;
    if (kind != "all") meant = kind == "user" ? TokenKind::user : TokenKind::merchant;
    context.desk.expire(meant);
    return {{"expired", kind}};
}

json setLatency(AdminContext& context, const Request& request) {
    context.desk.setLatency(Latency::parse(bodyOf(request).value("latency", "")));
    return {{"latency", context.desk.latency().text()}};
}

json reset(AdminContext& context, const Request&) {
    context.desk.reset();
    return {{"reset", true}};
}

json addImage(AdminContext& context, const Request& request) {
    auto& desk = context.desk;
    const auto file = queryText(request, "file").value_or("");
    return {{"url", desk.baseUrl() + "img/" + desk.images().add(file, request.body)}};
}

/// The run is told because a client that polls must notice that the backend was started anew.
json checkExpectation(AdminContext& context, const Request& request) {
    const auto body = bodyOf(request);
    const auto words = splitExpectations(body.value("words", std::vector<std::string>()));
    if (words.size() != 1) throw std::invalid_argument("one expectation at a time");
    const auto after = body.value("after", std::uint64_t{0});
    const auto [entries, lost, newest] = context.desk.journal().after(after);
    if (after > newest)
        throw std::invalid_argument("there is no entry " + std::to_string(after) +
                                    " yet; the newest is " + std::to_string(newest));
    auto answer =
        checkExpectation(entries, parseExpectation(words.front()), context.desk.showsSecrets());
    answer.update({{"run", context.run()}, {"lost", lost}, {"newest", newest}});
    return answer;
}

struct Route {
    std::string_view method;
    std::string_view path;
    json (*handler)(AdminContext&, const Request&);
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

Reply handle(const Route& route, AdminContext& context, const Request& request) {
    try {
        const auto answer = route.handler(context, request);
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
            return handle(route, context, request);
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
