#include <memory>
#include <stdexcept>
#include <string>

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
    std::uint16_t port = 0;
    if (CLI::detail::lexical_cast(text, port)) return port;
    throw std::invalid_argument(
        "--admin-port takes a port number, 0 for a free one, or off, not \"" + text + "\"");
}

}  // namespace

void addCommonOptions(CLI::App& command, CommonOptions& options) {
    auto& desk = options.desk;
    command.add_option("--port", desk.port, "Port to listen on; 0 picks a free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    const auto set = [&command](const std::string& name, auto apply, const std::string& help) {
        return command.add_option_function<std::string>(name, apply, help);
    };
    set(
        "--admin-port", [&](const auto& text) { options.adminPort = adminPortIn(text); },
        "Port for the other commands; 0 picks a free one, off disables it. By default 8444, or a "
        "free one with --port 0 and under run");
    set(
        "--ttl", [&](const auto& text) { desk.lifetimes = parseLifetimes(text); },
        "Lifetimes of tokens")
        ->default_str("user=15m,merchant=1h");
    set(
        "--latency", [&](const auto& text) { desk.latency = Latency::parse(text); },
        "Delay of each reply, as in 80ms+-30");
    set(
        "--fault", [&](const auto& text) { desk.faults.push_back(parseFault(text)); },
        "A fault rule, as in user/unset:401:times=1; may be repeated")
        ->trigger_on_parse();
    set(
        "--auth-read", [&](const auto& text) { desk.authRead = authReadNamed(text); },
        "Which of several bearer values counts: first, last or any")
        ->default_str("last");
    command.add_option("--seed", desk.seed, "Makes ids, tokens and random choices repeatable");
    command.add_flag("--strict", options.strict,
                     "Exit with a failure if a request broke the contract");
    command.add_flag("--show-secrets", desk.showSecrets, "Show tokens and keys in full");
    command.footer("Kinds of faults, written ENDPOINT:KIND[=ARG][:times=N][:p=0.3]:\n" +
                   describeFaultKinds());
}

}  // namespace kivo::backend
