#include "backend/faults/Fault.h"

#include <array>
#include <charconv>
#include <stdexcept>

#include "backend/base/Number.h"
#include "backend/faults/FaultKinds.h"
#include "backend/service/Endpoints.h"

namespace kivo::backend {

namespace {

[[noreturn]] void reject(std::string_view part, const std::string& advice) {
    throw std::invalid_argument("\"" + std::string(part) + "\" " + advice);
}

/// Removes the text up to the separator from the front.
std::string_view next(std::string_view& rest, char separator) {
    const auto end = rest.find(separator);
    const auto part = rest.substr(0, end);
    rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
    return part;
}

bool isEndpoint(std::string_view name) {
    return name == "*" || name == "img" || endpointNamed(name);
}

void applyLimit(Fault& fault, std::string_view part) {
    const auto equals = part.find('=');
    const auto name = part.substr(0, equals);
    const auto value = equals == part.npos ? "" : part.substr(equals + 1);
    const auto times = parseNumber<unsigned>(value).value_or(0);
    const auto probability = parseNumber<double>(value).value_or(0);
    if (name == "times" && times > 0)
        fault.times = times;
    else if (name == "p" && probability > 0 && probability <= 1)
        fault.probability = probability;
    else
        reject(part, "is not a limit; write times=2 or p=0.3, or leave it out");
}

void require(const Fault& fault, std::string_view rule) {
    if (!isEndpoint(fault.endpoint))
        reject(fault.endpoint, "is not an endpoint; choose one of " + endpointNames() +
                                   "img, or * for every request");
    const auto* kind = faultKindNamed(fault.kind);
    if (!kind) reject(fault.kind, "is not a kind of fault; choose one of\n" + describeFaultKinds());
    if (!kind->accepts(fault.argument))
        reject(rule, "is not valid; write " + std::string(kind->form) + ": " +
                         std::string(kind->description));
    if (!kind->apply && fault.endpoint != "*")
        reject(rule, "affects connections, which have no endpoint; write *:" + fault.kind);
}

std::string textOf(double number) {
    std::array<char, 32> text{};
    const char* const end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    return {text.data(), static_cast<std::size_t>(end - text.data())};
}

}  // namespace

Fault parseFault(std::string_view rule) {
    if (rule.find(':') == rule.npos)
        reject(rule,
               "is not a fault rule; write ENDPOINT:KIND[=ARG][:times=N][:p=0.3], as in "
               "user/unset:401:times=2");
    auto rest = rule;
    Fault fault{.endpoint = std::string(next(rest, ':')), .kind = {}};
    auto what = next(rest, ':');
    fault.kind = next(what, '=');
    fault.argument = what;
    require(fault, rule);
    while (!rest.empty()) applyLimit(fault, next(rest, ':'));
    return fault;
}

std::string ruleOf(const Fault& fault) {
    auto rule = fault.endpoint + ":" + fault.kind;
    if (!fault.argument.empty()) rule += "=" + fault.argument;
    if (fault.times) rule += ":times=" + std::to_string(*fault.times);
    if (fault.probability < 1) rule += ":p=" + textOf(fault.probability);
    return rule;
}

}  // namespace kivo::backend
