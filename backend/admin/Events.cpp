#include "backend/admin/Events.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "backend/admin/AdminContext.h"
#include "backend/admin/Query.h"
#include "backend/admin/Records.h"
#include "backend/base/Number.h"
#include "backend/desk/Desk.h"
#include "backend/faults/FaultKinds.h"
#include "backend/service/Endpoints.h"
#include "backend/service/Envelope.h"

namespace kivo::backend {

namespace {

using nlohmann::json;
using Clock = std::chrono::steady_clock;

/// Leaves room for other commands among the admin port's connections.
constexpr std::size_t followerLimit = 32;
constexpr std::size_t eventBytes = 256 * 1024;
constexpr std::chrono::milliseconds betweenStates(200);

std::string event(const std::string& fields, const json& data) {
    return fields + "data: " + data.dump(-1, ' ', false, json::error_handler_t::replace) + "\n\n";
}

json endpointList() {
    json list = json::array();
    for (const auto& endpoint : endpoints())
        list.push_back({{"name", endpoint.name},
                        {"method", endpoint.method},
                        {"bearer", endpoint.bearer ? nameOf(*endpoint.bearer) : ""}});
    return list;
}

json faultKindList() {
    json list = json::array();
    for (const auto& kind : faultKinds())
        list.push_back({{"name", kind.name},
                        {"form", kind.form},
                        {"description", kind.description},
                        {"forRequests", kind.apply != nullptr}});
    return list;
}

json descriptionOf(const AdminContext& context) {
    auto& desk = context.desk;
    return {{"run", context.run()},
            {"version", KIVO_DEV_VERSION},
            {"start", millisecondsSinceEpoch(context.start)},
            {"baseUrl", desk.baseUrl()},
            {"hosts", context.info.hosts},
            {"environment", context.info.environment},
            {"trustFile", context.info.trustFile},
            {"showsSecrets", desk.showsSecrets()},
            {"kept", desk.journal().limits().entries},
            {"lifetimes",
             {{"user", desk.lifetimes().user.count()},
              {"merchant", desk.lifetimes().merchant.count()}}},
            {"endpoints", endpointList()},
            {"faultKinds", faultKindList()}};
}

/// One client's place in the journal.
class Feed {
public:
    Feed(AdminContext& context, std::uint64_t after) : context_(context), after_(after) {
        ++context_.followers;
    }
    ~Feed() { --context_.followers; }
    Feed(const Feed&) = delete;
    Feed& operator=(const Feed&) = delete;

    /// All that is new; empty if nothing is.
    std::string next() { return description() + entries() + state(); }

private:
    std::string description() {
        if (described_) return {};
        described_ = true;
        return event("event: run\n", descriptionOf(context_));
    }

    std::string entries() {
        auto& desk = context_.desk;
        const auto [entries, lost, newest] = desk.journal().after(after_, eventBytes);
        if (entries.empty()) return {};
        after_ = entries.back().number;
        json records = json::array();
        for (const auto& entry : entries) records.push_back(recordOf(entry, desk.showsSecrets()));
        return event("id: " + context_.run() + "-" + std::to_string(after_) + "\n",
                     {{"lost", lost}, {"entries", std::move(records)}});
    }

    std::string state() {
        if (Clock::now() < nextState_) return {};
        nextState_ = Clock::now() + betweenStates;
        auto text = event("event: state\n", stateOf(context_.desk));
        if (text == state_) return {};
        return state_ = std::move(text);
    }

    AdminContext& context_;
    std::uint64_t after_;
    bool described_ = false;
    Clock::time_point nextState_;
    std::string state_;
};

/// The number to resume after; 0 where the place is of another run.
std::uint64_t placeIn(const std::string& run, const Request& request) {
    const auto header = request.header("Last-Event-ID");
    const auto place = header.empty() ? queryText(request, "after").value_or("") : header;
    if (!place.starts_with(run + "-")) return 0;
    return parseNumber<std::uint64_t>(place.substr(run.size() + 1)).value_or(0);
}

}  // namespace

Reply followEvents(AdminContext& context, const Request& request) {
    if (context.followers >= followerLimit)
        return refusal(503, "too many pages follow this backend; close some of them");
    const auto feed = std::make_shared<Feed>(context, placeIn(context.run(), request));
    return {.headers = {{"Content-Type", "text/event-stream"}, {"Cache-Control", "no-store"}},
            .more = [feed] { return feed->next(); }};
}

}  // namespace kivo::backend
