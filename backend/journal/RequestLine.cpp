#include "backend/journal/RequestLine.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "backend/journal/Contract.h"
#include "backend/journal/TokenNames.h"
#include "backend/service/Endpoints.h"

namespace kivo::backend {

namespace {

constexpr std::size_t pathLimit = 200;

std::tm localParts(std::chrono::system_clock::time_point time) {
    const auto seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    return parts;
}

std::string methodAndPath(const Request& request) {
    if (request.method.empty()) return "(no HTTP request)";
    return printable(request.method) + " " + printable(request.path().substr(0, pathLimit));
}

std::string listed(const std::vector<std::string>& names, const std::vector<std::string>& tokens,
                   bool showSecrets) {
    std::string text;
    for (std::size_t index = 0; index < names.size(); ++index) {
        text += (index == 0 ? "" : "+") + names[index];
        if (showSecrets && index < tokens.size()) text += "=" + printable(tokens[index]);
    }
    return text;
}

std::string tokensOf(const Entry& entry, bool showSecrets) {
    auto carried = listed(entry.carried, carriedTokens(entry.exchange.request), showSecrets);
    const auto given = listed(entry.given, givenTokens(entry.exchange.reply), showSecrets);
    if (given.empty()) return carried;
    return carried + (carried.empty() ? "gives " : " gives ") + given;
}

std::string remarksOn(const Entry& entry) {
    std::string text;
    if (entry.imageHits > 0) text += "  hit " + std::to_string(entry.imageHits);
    if (!entry.exchange.reply.fault.empty()) text += "  fault " + entry.exchange.reply.fault;
    if (!entry.exchange.delivered) text += "  (not delivered)";
    return text;
}

std::string joined(const Violations& violations) {
    std::string text;
    for (const auto& violation : violations)
        text += (text.empty() ? "" : "; ") + printable(violation.text);
    return text;
}

std::string column(const std::string& text) { return text.empty() ? "" : "  " + text; }

}  // namespace

std::string verdictOn(const Entry& entry) {
    const auto& request = entry.exchange.request;
    if (!entry.violations.empty()) return "BROKEN: " + joined(entry.violations);
    if (request.method.empty() || imageAt(request.path())) return {};
    if (!endpointAt(request.path())) return "not an endpoint of the contract";
    return isPreflight(request) ? "a browser's preflight" : "ok";
}

std::string localTime(std::chrono::system_clock::time_point time) {
    const auto milliseconds =
        std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()).count() % 1000;
    const auto parts = localParts(time);
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%03d", parts.tm_hour, parts.tm_min,
                  parts.tm_sec, static_cast<int>(milliseconds));
    return text.data();
}

std::string isoTime(std::chrono::system_clock::time_point time) {
    const auto parts = localParts(time);
    std::array<char, 32> date{};
    std::array<char, 16> zone{};
    std::strftime(date.data(), date.size(), "%Y-%m-%dT", &parts);
    std::strftime(zone.data(), zone.size(), "%z", &parts);
    const std::string offset = zone.data();
    return date.data() + localTime(time) + offset.substr(0, 3) + ":" + offset.substr(3);
}

std::string printable(std::string_view text) {
    std::string shown(text);
    const auto isStrange = [](char letter) { return letter < ' ' || letter > '~'; };
    std::ranges::replace_if(shown, isStrange, '?');
    return shown;
}

std::string requestLine(const Entry& entry, bool showSecrets) {
    const auto& exchange = entry.exchange;
    const auto spent = std::chrono::round<std::chrono::milliseconds>(exchange.duration);
    return localTime(exchange.request.arrival) + "  " + methodAndPath(exchange.request) + "  " +
           std::to_string(exchange.reply.status) + "  " + std::to_string(spent.count()) + " ms" +
           column(tokensOf(entry, showSecrets)) + column(verdictOn(entry)) + remarksOn(entry) +
           "\n";
}

}  // namespace kivo::backend
