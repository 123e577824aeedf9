#include "backend/RequestLine.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <string_view>

namespace kivo::backend {
namespace {

constexpr std::size_t shownOfAPath = 200;

std::string printable(std::string_view text) {
    std::string shown(text.substr(0, shownOfAPath));
    const auto isStrange = [](char letter) { return letter < ' ' || letter > '~'; };
    std::ranges::replace_if(shown, isStrange, '?');
    return shown;
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

std::string methodAndPath(const Request& request) {
    if (request.method.empty()) return "(no HTTP request)";
    return printable(request.method) + " " + printable(request.path());
}

}  // namespace

std::string requestLine(const Exchange& exchange) {
    const auto spent = std::chrono::round<std::chrono::milliseconds>(exchange.duration);
    return localTime(exchange.request.arrival) + "  " + methodAndPath(exchange.request) + "  " +
           std::to_string(exchange.reply.status) + "  " + std::to_string(spent.count()) + " ms" +
           (exchange.delivered ? "" : "  (not delivered)") + "\n";
}

}  // namespace kivo::backend
