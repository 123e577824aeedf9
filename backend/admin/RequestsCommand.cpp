// Shows the requests of a running backend.

#include <nlohmann/json.hpp>

#include <stdexcept>
#include <thread>
#include <utility>

#include "backend/admin/AdminCommands.h"
#include "backend/admin/Wording.h"
#include "backend/base/Terminal.h"
#include "backend/journal/LineColours.h"
#include "backend/service/Endpoints.h"

namespace kivo::backend::command {

namespace {

using nlohmann::json;
constexpr std::chrono::milliseconds pollingPause(100);
constexpr std::size_t dateLength = 10;  // Of 2026-03-01T09:30:00.250+01:00.
constexpr std::size_t zoneLength = 6;

std::string lossLine(const json& lost) {
    return "kivo-dev: " + lost.dump() + (lost == 1 ? " entry was" : " entries were") +
           " dropped before they could be shown; only the newest are kept\n";
}

std::string filterQuery(const RequestsOptions& options) {
    std::string query;
    if (!options.endpoint.empty())
        query +=
            "&endpoint=" + (options.endpoint == "img" ? options.endpoint
                                                      : endpointMeant(options.endpoint, "or img"));
    if (options.status) query += "&status=" + std::to_string(*options.status);
    if (options.broken) query += "&broken=1";
    return query;
}

/// Prints requests as they are asked for, each once.
class Viewer {
public:
    Viewer(const AdminClient& backend, const RequestsOptions& options)
        : backend_(backend), options_(options), query_(filterQuery(options)) {}

    void showFirst() { show(options_.limit ? "&limit=" + std::to_string(*options_.limit) : ""); }
    void showNew() { show(""); }

private:
    void show(const std::string& limit) {
        const auto target = "/requests?after=" + std::to_string(newest_) + query_ + limit;
        const auto answer = json::parse(backend_.get(target));
        if (answer.at("lost") > 0) printError(lossLine(answer.at("lost")));
        for (const auto& request : answer.at("requests"))
            options_.json ? showRecord(request, answer.at("showsSecrets")) : showLine(request);
        newest_ = answer.at("newest");
    }

    void showRecord(const json& request, bool showsSecrets) {
        if (!showsSecrets && !std::exchange(masksAreTold_, true))
            printError("kivo-dev: " + maskingNote + "\n");
        print(inAscii(request) + "\n");
    }

    /// The lines have the time of day; a line of its own tells the date and the zone.
    void showLine(const json& request) {
        const auto time = request.at("time").get<std::string>();
        const auto zone = time.substr(time.size() - zoneLength);
        auto day = time.substr(0, dateLength) + ", times in UTC" + zone + "\n";
        if (day != day_) print(day);
        day_ = std::move(day);
        print(forOutput(request.at("line")));
    }

    const AdminClient& backend_;
    const RequestsOptions& options_;
    const std::string query_;
    std::uint64_t newest_ = 0;
    std::string day_;
    bool masksAreTold_ = false;
};

}  // namespace

void showRequests(const AdminClient& backend, const RequestsOptions& options) {
    Viewer viewer(backend, options);
    viewer.showFirst();
    try {
        while (options.follow) {
            std::this_thread::sleep_for(pollingPause);
            viewer.showNew();
        }
    } catch (const std::runtime_error& error) {
        printError(std::string("kivo-dev: stopped following: ") + error.what() + "\n");
    }
}

}  // namespace kivo::backend::command
