#include "backend/admin/AdminCommands.h"

#include <boost/algorithm/string/case_conv.hpp>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <locale>
#include <stdexcept>

#include "backend/admin/Wording.h"
#include "backend/base/FileDescriptor.h"
#include "backend/base/Terminal.h"
#include "backend/service/Images.h"
#include "backend/tls/AuthorityStore.h"

namespace kivo::backend::command {

namespace {

using nlohmann::json;

std::string faultLine(const json& fault) {
    return "  " + fault.at("rule").get<std::string>() + "  (" + counted(fault.at("hits"), "hit") +
           ")\n";
}

std::string sessionLine(const json& session) {
    std::string line = "  " + session.at("id").get<std::string>();
    for (const auto* key : {"apiKey", "deviceToken", "permission"}) {
        const auto value = harmless(session.at(key).get<std::string>());
        if (!value.empty()) line += std::string("  ") + key + "=" + value;
    }
    if (!session.at("user").empty()) line += "  user=" + inAscii(session.at("user"));
    return line + "\n";
}

std::string imageLine(const json& image) {
    return "  " + image.at("name").get<std::string>() + "  (" + counted(image.at("hits"), "hit") +
           ")\n";
}

template <typename Line>
std::string section(const std::string& title, const json& things, const Line& line) {
    std::string text = title + (things.empty() ? ": none\n" : "\n");
    for (const auto& thing : things) text += line(thing);
    return text;
}

std::string totalsSection(const json& totals) {
    std::string text = "requests\n";
    for (const auto& [endpoint, count] : totals.at("requests").items())
        text += "  " + endpoint + "  " + count.dump() + "\n";
    return text + "  refreshes  " + totals.at("refreshes").dump() + "\n  broke the contract  " +
           totals.at("violations").dump() + "\n";
}

std::string imageIn(const std::string& file) {
    const std::string advice =
        "; give an image of at most 1 MiB, as in: kivo-dev push --image-file a.png";
    std::error_code error;
    const auto size = std::filesystem::file_size(file, error);
    if (error) throw std::runtime_error("cannot read " + file + ": " + error.message() + advice);
    if (size == 0) throw std::runtime_error(file + " is empty" + advice);
    if (size > Images::largest) throw std::runtime_error(file + " is larger than 1 MiB" + advice);
    return contentOf(file);
}

/// The file name for the request's URL: only a plain extension is kept.
std::string safeName(const std::string& file) {
    auto ending = std::filesystem::path(file).extension().string();
    boost::algorithm::to_lower(ending, std::locale::classic());
    const bool plain = ending.find_first_not_of(".abcdefghijklmnopqrstuvwxyz") == ending.npos;
    return plain ? "image" + ending : "image";
}

}  // namespace

void listFaults(const AdminClient& backend, bool asJson) {
    const auto faults = json::parse(backend.get("/faults")).at("faults");
    print(asJson ? inAscii(faults) + "\n" : section("faults", faults, faultLine));
}

void addFault(const AdminClient& backend, const std::string& rule) {
    const auto answer = json::parse(backend.post("/faults", json{{"rule", rule}}.dump()));
    print("added " + answer.at("added").get<std::string>() + "\n");
}

void clearFaults(const AdminClient& backend, const std::string& rule) {
    const auto body = rule.empty() ? json::object() : json{{"rule", rule}};
    const auto cleared = json::parse(backend.remove("/faults", body.dump())).at("cleared");
    if (cleared == 0 && !rule.empty())
        throw std::runtime_error("there is no fault " + rule + "; see: kivo-dev fault list");
    print("cleared " + counted(cleared, "fault") + "\n");
}

void expire(const AdminClient& backend, const std::string& kind) {
    backend.post("/expire", json{{"kind", kind}}.dump());
    print("expired: " + kind + "\n");
}

void reset(const AdminClient& backend) {
    backend.post("/reset", "{}");
    print("reset\n");
}

void showState(const AdminClient& backend, bool asJson) {
    const auto state = json::parse(backend.get("/state"));
    if (asJson) return print(inAscii(state) + "\n");
    const bool masks = !state.at("showsSecrets") && !state.at("sessions").empty();
    print("base URL  " + state.at("baseUrl").get<std::string>() + "\nnewest entry  " +
          state.at("newest").dump() + "\n" +
          section(masks ? "sessions (" + maskingNote + ")" : "sessions", state.at("sessions"),
                  sessionLine) +
          section("faults", state.at("faults"), faultLine) +
          section("pushed images", state.at("images"), imageLine) +
          totalsSection(state.at("totals")));
}

void push(const AdminClient& backend, const std::string& imageFile) {
    const auto target = "/images?file=" + safeName(imageFile);
    const auto url = json::parse(backend.post(target, imageIn(imageFile))).at("url");
    const nlohmann::ordered_json notification{
        {"title", "Hello"}, {"body", "From kivo-dev"}, {"image", url}};
    print(nlohmann::ordered_json{{"notification", notification}}.dump(2) + "\n");
    printError("kivo-dev: \"kivo-dev state\" shows how often the image was fetched\n");
}

void showAuthorityPath() { print(openAuthorityStore(authorityFolder()).trustFile.string() + "\n"); }

}  // namespace kivo::backend::command
