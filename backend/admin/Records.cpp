#include "backend/admin/Records.h"

#include <nlohmann/json.hpp>

#include <array>

#include "backend/journal/RequestLine.h"
#include "backend/journal/Secrets.h"

namespace kivo::backend {

namespace {

using nlohmann::json;

json recordsOf(const std::vector<Header>& headers, bool showSecrets) {
    json list = json::array();
    for (const auto& header : headers) {
        const auto shown = showSecrets ? header : withoutSecrets(header);
        list.push_back({shown.name, shown.value});
    }
    return list;
}

json messageOf(const std::vector<Header>& headers, const std::string& body, bool showSecrets) {
    return {{"headers", recordsOf(headers, showSecrets)},
            {"body", showSecrets ? body : withoutSecrets(body)}};
}

double millisecondsIn(std::chrono::steady_clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

std::string shown(const std::string& secret, bool showSecrets) {
    return showSecrets ? secret : shortened(secret);
}

json recordOf(const Session& session, bool showSecrets) {
    return {{"id", session.id},
            {"apiKey", shown(session.apiKey, showSecrets)},
            {"user", session.user},
            {"deviceToken", shown(session.deviceToken, showSecrets)},
            {"permission", session.permission}};
}

template <typename Things, typename Describe>
json listOf(const Things& things, const Describe& describe) {
    json list = json::array();
    for (const auto& thing : things) list.push_back(describe(thing));
    return list;
}

const char* nameOf(EntryKind kind) {
    static constexpr std::array names{"request", "handshake", "forwarded", "expired", "reset"};
    return names.at(static_cast<std::size_t>(kind));
}

const char* nameOf(Violation::Part part) {
    static constexpr std::array names{"path", "method", "header", "body", "member"};
    return names.at(static_cast<std::size_t>(part));
}

json placed(const Violation& violation) {
    return {{"part", nameOf(violation.part)}, {"name", violation.name}, {"text", violation.text}};
}

}  // namespace

std::int64_t millisecondsSinceEpoch(std::chrono::system_clock::time_point time) {
    return std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

json stateOf(Desk& desk) {
    return {{"baseUrl", desk.baseUrl()},
            {"sessions", recordsOf(desk.service().sessions(), desk.showsSecrets())},
            {"images", recordsOf(desk.images().list())},
            {"faults", recordsOf(desk.faults().list())},
            {"latency", desk.latency().text()},
            {"totals", recordOf(desk.tally().totals())},
            {"newest", desk.journal().newest()},
            {"showsSecrets", desk.showsSecrets()}};
}

json recordOf(const Entry& entry, bool showSecrets) {
    const auto& [request, reply, duration, delivered] = entry.exchange;
    return {{"number", entry.number},
            {"kind", nameOf(entry.kind)},
            {"detail", entry.detail},
            {"arrival", millisecondsSinceEpoch(request.arrival)},
            {"time", isoTime(request.arrival)},
            {"line", requestLine(entry, showSecrets)},
            {"method", request.method},
            {"target", request.target},
            {"authority", request.authority},
            {"connection", request.connection},
            {"status", reply.status},
            {"milliseconds", millisecondsIn(duration)},
            {"delivered", delivered},
            {"carried", entry.carried},
            {"given", entry.given},
            {"verdict", verdictOn(entry)},
            {"violations", listOf(entry.violations, placed)},
            {"fault", reply.fault},
            {"imageHits", entry.imageHits},
            {"request", messageOf(request.headers, request.body, showSecrets)},
            {"reply", messageOf(reply.headers, reply.body, showSecrets)}};
}

json recordOf(const Totals& totals) {
    return {{"requests", totals.requests},
            {"refreshes", totals.refreshes},
            {"violations", totals.violations},
            {"faultHits", totals.faultHits},
            {"failedHandshakes", totals.failedHandshakes},
            {"forwarded", totals.forwarded}};
}

json recordsOf(const std::vector<Session>& sessions, bool showSecrets) {
    return listOf(sessions, [&](const auto& session) { return recordOf(session, showSecrets); });
}

json recordsOf(const std::vector<Images::Image>& images) {
    return listOf(
        images, [](const auto& image) { return json{{"name", image.name}, {"hits", image.hits}}; });
}

json recordsOf(const std::vector<Faults::Active>& faults) {
    return listOf(faults, [](const auto& active) {
        return json{{"rule", ruleOf(active.fault)}, {"hits", active.hits}};
    });
}

}  // namespace kivo::backend
