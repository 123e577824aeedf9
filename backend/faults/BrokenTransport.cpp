#include "backend/faults/BrokenTransport.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "backend/base/Duration.h"
#include "backend/faults/ZippedZeros.h"

namespace kivo::backend {

namespace {

constexpr std::string_view redirectMark = "?redirected";

struct RedirectArgument {
    std::string_view status;
    std::string_view target;
};

RedirectArgument readRedirect(std::string_view argument) {
    const auto comma = argument.find(',');
    const auto status = argument.substr(0, comma);
    return {.status = status.empty() ? "307" : status,
            .target = comma == argument.npos ? "same" : argument.substr(comma + 1)};
}

/// A redirect target; its location depends on the request's path and the "host:port" that was
/// asked.
struct Target {
    std::string_view name;
    std::string (*location)(const std::string& path, const std::string& authority);
};

std::string marked(const std::string& path) { return path + std::string(redirectMark); }

std::string hostIn(const std::string& authority) {
    const auto colon = authority.find(':', authority.starts_with('[') ? authority.find(']') : 0);
    return authority.substr(0, colon);
}

constexpr std::array<Target, 6> targets{{
    {"same", [](auto& path, auto& asked) { return "https://" + asked + marked(path); }},
    {"relative", [](auto& path, auto&) { return marked(path.substr(path.rfind('/') + 1)); }},
    {"scheme", [](auto& path, auto& asked) { return "http://" + asked + marked(path); }},
    {"host", [](auto& path, auto&) { return "https://elsewhere.invalid" + marked(path); }},
    {"port",
     [](auto& path, auto& asked) { return "https://" + hostIn(asked) + ":1" + marked(path); }},
    {"loop", [](auto& path, auto& asked) { return "https://" + asked + path; }},
}};

const Target* targetNamed(std::string_view name) {
    const auto* target = std::ranges::find(targets, name, &Target::name);
    return target == targets.end() ? nullptr : target;
}

}  // namespace

bool isDuration(std::string_view argument) { return parseDuration(argument).has_value(); }

Reply delayedByFault(const Request&, Reply good, std::string_view argument) {
    good.delay += parseDuration(argument).value_or(std::chrono::milliseconds(0));
    return good;
}

Reply dripping(const Request&, Reply good, std::string_view argument) {
    good.drip = parseDuration(argument).value_or(std::chrono::milliseconds(0));
    return good;
}

Reply endlessBody(const Request&, Reply good, std::string_view) {
    good.body.assign(16 * 1024, ' ');
    good.repetitions = Reply::endless;
    return good;
}

Reply compressedBomb(const Request&, Reply, std::string_view) {
    const auto& zeros = zippedZeros();
    return {.headers = {{"Content-Type", "application/json"}, {"Content-Encoding", "gzip"}},
            .body = zeros.megabyte,
            .repetitions = zeros.megabytes,
            .opening = zeros.header,
            .closing = zeros.trailer};
}

bool isRedirect(std::string_view argument) {
    const auto [status, target] = readRedirect(argument);
    constexpr std::array<std::string_view, 5> statuses{"301", "302", "303", "307", "308"};
    return std::ranges::find(statuses, status) != statuses.end() && targetNamed(target);
}

Reply redirected(const Request& request, Reply good, std::string_view argument) {
    const auto [status, name] = readRedirect(argument);
    const auto* target = targetNamed(name);
    if (!target || wasRedirected(request)) return good;
    const auto location = target->location(std::string(request.path()), request.authority);
    return {.status = std::stoi(std::string(status)), .headers = {{"Location", location}}};
}

bool wasRedirected(const Request& request) { return request.target.ends_with(redirectMark); }

}  // namespace kivo::backend
