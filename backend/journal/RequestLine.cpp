#include "backend/journal/RequestLine.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "backend/journal/TokenNames.h"
#include "backend/service/Endpoints.h"

namespace kivo::backend {

namespace {

constexpr std::size_t pathLimit = 200;

std::string printable(std::string_view text) {
    std::string shown(text);
    const auto isStrange = [](char letter) { return letter < ' ' || letter > '~'; };
    std::ranges::replace_if(shown, isStrange, '?');
    return shown;
}

std::string methodAndPath(const Request& request) {
    if (request.method.empty()) return "(no HTTP request)";
    return printable(request.method) + " " + printable(request.path().substr(0, pathLimit));
}

std::string listed(const std::vector<NamedToken>& tokens, bool showSecrets) {
    std::string text;
    for (const auto& [name, token] : tokens) {
        text += (text.empty() ? "" : "+") + name;
        if (showSecrets) text += "=" + printable(token);
    }
    return text;
}

std::string tokensOf(const Exchange& exchange, bool showSecrets) {
    auto carried = listed(carriedTokens(exchange.request), showSecrets);
    const auto given = listed(givenTokens(exchange.reply), showSecrets);
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

std::string column(const std::string& text) { return text.empty() ? "" : "  " + text; }

}  // namespace

std::string verdictOn(const Entry& entry) {
    const auto path = entry.exchange.request.path();
    if (entry.exchange.request.method.empty() || imageAt(path)) return {};
    if (!endpointAt(path)) return "not an endpoint of the contract";
    if (entry.violations.empty()) return "ok";
    std::string text = "BROKEN: ";
    for (const auto& violation : entry.violations)
        text += (&violation == &entry.violations.front() ? "" : "; ") + printable(violation);
    return text;
}

std::string localTime(std::chrono::system_clock::time_point time) {
    const auto seconds = std::chrono::system_clock::to_time_t(time);
    const auto milliseconds =
        std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch()).count() % 1000;
    std::tm parts{};
    localtime_r(&seconds, &parts);
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%02d:%02d:%02d.%03d", parts.tm_hour, parts.tm_min,
                  parts.tm_sec, static_cast<int>(milliseconds));
    return text.data();
}

std::string requestLine(const Entry& entry, bool showSecrets) {
    const auto& exchange = entry.exchange;
    const auto spent = std::chrono::round<std::chrono::milliseconds>(exchange.duration);
    return localTime(exchange.request.arrival) + "  " + methodAndPath(exchange.request) + "  " +
           std::to_string(exchange.reply.status) + "  " + std::to_string(spent.count()) + " ms" +
           column(tokensOf(exchange, showSecrets)) + column(verdictOn(entry)) + remarksOn(entry) +
           "\n";
}

}  // namespace kivo::backend
