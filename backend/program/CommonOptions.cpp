#include <limits>
#include <memory>
#include <stdexcept>
#include <string>

#include "backend/base/Number.h"
#include "backend/faults/FaultKinds.h"
#include "backend/program/Commands.h"

namespace kivo::backend {

namespace {

AuthRead authReadNamed(const std::string& name) {
    if (name == "first") return AuthRead::first;
    if (name == "last") return AuthRead::last;
    if (name == "any") return AuthRead::any;
    throw std::invalid_argument("--auth-read takes first, last or any, not \"" + name + "\"");
}

std::optional<std::uint16_t> adminPortIn(const std::string& text) {
    if (text == "off") return std::nullopt;
    if (const auto port = parseNumber<std::uint16_t>(text)) return port;
    throw std::invalid_argument(
        "--admin-port takes a port number, 0 for a free one, or off, not \"" + text + "\"");
}

void addHosts(CLI::App& command, CommonOptions& options) {
    options.baseUrls = {KIVO_PRODUCTION_BASE_URL, KIVO_DEVELOPMENT_BASE_URL};
    command
        .add_option("--host", options.hosts,
                    "Another https host to answer for as a proxy, NAME or NAME:PORT; may be "
                    "repeated")
        ->allow_extra_args(false);
}

}  // namespace

CLI::Validator numberFrom(long lowest, long highest) {
    const auto check = [lowest, highest](const std::string& text) -> std::string {
        const auto number = parseNumber<long>(text);
        if (number && *number >= lowest && *number <= highest) return "";
        return "\"" + text + "\" is not a whole number from " + std::to_string(lowest) + " to " +
               std::to_string(highest);
    };
    return {check, ""};
}

void addCommonOptions(CLI::App& command, CommonOptions& options) {
    auto& desk = options.desk;
    command.add_option("--port", desk.port, "Port to listen on; 0 picks a free one")
        ->check(numberFrom(0, 65535))
        ->type_name("N")
        ->capture_default_str();
    const auto set = [&command](const std::string& name, auto apply, const std::string& help,
                                const std::string& value) {
        return command.add_option_function<std::string>(name, apply, help)->type_name(value);
    };
    set(
        "--admin-port", [&](const auto& text) { options.adminPort = adminPortIn(text); },
        "Port for the other commands; 0 picks a free one, off disables it. By default 8444, or a "
        "free one with --port 0 and under run",
        "N|off");
    set(
        "--ttl", [&](const auto& text) { desk.lifetimes = parseLifetimes(text); },
        "Lifetimes of tokens", "user=TIME,merchant=TIME")
        ->default_str("user=15m,merchant=1h");
    set(
        "--latency", [&](const auto& text) { desk.latency = Latency::parse(text); },
        "Delay of each reply, as in 80ms+-30", "TIME");
    set(
        "--fault", [&](const auto& text) { desk.faults.push_back(parseFault(text)); },
        "A fault rule, as in user/unset:401:times=1; may be repeated", "RULE")
        ->trigger_on_parse();
    set(
        "--auth-read", [&](const auto& text) { desk.authRead = authReadNamed(text); },
        "Which of several bearer values counts: first, last or any", "first|last|any")
        ->default_str("last");
    command.add_option("--seed", desk.seed, "Makes ids, tokens and random choices repeatable")
        ->check(numberFrom(0, std::numeric_limits<long>::max()))
        ->type_name("N");
    command.add_flag("--strict", options.strict,
                     "Exit with a failure if a request broke the contract");
    command.add_flag("--show-secrets", desk.showSecrets, "Show tokens and keys in full");
    addHosts(command, options);
    command.footer("Kinds of faults, written " + std::string(faultForm) + ":\n" +
                   describeFaultKinds());
}

}  // namespace kivo::backend
