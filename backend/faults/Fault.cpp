#include "backend/faults/Fault.h"

#include <array>
#include <charconv>
#include <locale>
#include <sstream>
#include <stdexcept>

#include "backend/base/Duration.h"
#include "backend/base/Number.h"
#include "backend/faults/BrokenTransport.h"
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

/// "*" and "img" are not ends of paths.
std::string endpointIn(std::string_view text) {
    if (text == "*" || text == "img") return std::string(text);
    return endpointMeant(text, "img, or * for every request");
}

/// What is meant by a number that stands where a kind should.
std::string statusHint(std::string_view text) {
    const auto status = parseNumber<int>(text).value_or(0);
    return status >= 200 && status <= 599 ? "; did you mean status=" + std::string(text) + "?" : "";
}

/// Sessions are numbered from 1, without leading zeros.
bool isSession(std::string_view text) {
    return text.starts_with('S') && text.substr(1, 1) > "0" &&
           parseNumber<std::uint64_t>(text.substr(1));
}

/// 0 for what is not a number. libc++ 19 has no std::from_chars for a double.
double fractionIn(std::string_view text) {
    std::istringstream in{std::string(text)};
    in.imbue(std::locale::classic());
    double number = 0;
    in >> std::noskipws >> number;
    return in && in.peek() == std::char_traits<char>::eof() ? number : 0;
}

void applyLimit(Fault& fault, std::string_view part) {
    const auto equals = part.find('=');
    const auto name = part.substr(0, equals);
    const auto value = equals == part.npos ? "" : part.substr(equals + 1);
    const auto times = parseNumber<unsigned>(value).value_or(0);
    const auto probability = fractionIn(value);
    if (name == "times" && times > 0)
        fault.times = times;
    else if (name == "p" && probability > 0 && probability <= 1)
        fault.probability = probability;
    else if (name == "session" && isSession(value))
        fault.session = value;
    else
        reject(part, "is not a limit; write times=2, p=0.3 or session=S1, or leave it out");
}

void require(const Fault& fault, std::string_view rule) {
    const auto* kind = faultKindNamed(fault.kind);
    if (!kind) {
        const auto hint = statusHint(fault.kind);
        reject(fault.kind, "is not a kind of fault" +
                               (hint.empty() ? "; choose one of\n" + describeFaultKinds() : hint));
    }
    if (!kind->accepts(fault.argument))
        reject(rule, "is not valid; write " + std::string(kind->form) + ": " +
                         std::string(kind->description));
    if (!kind->apply && fault.endpoint != "*")
        reject(rule, "affects connections, which have no endpoint; write *:" + fault.kind);
}

bool givesTokens(std::string_view endpoint) {
    const auto* named = endpointNamed(endpoint);
    return !named || named->bearer != TokenKind::user;
}

/// Why the fault could never change anything; empty if it could.
std::string uselessBecause(const Fault& fault) {
    const auto& kind = *faultKindNamed(fault.kind);
    const bool isImage = fault.endpoint == "img";
    if (kind.changes == Changes::tokens && (isImage || !givesTokens(fault.endpoint)))
        return "replies of " + fault.endpoint + " contain no token";
    if (kind.changes == Changes::jsonObject && isImage) return "images are not JSON";
    if (parseDuration(fault.argument) == std::chrono::milliseconds(0))
        return "a pause of 0 delays nothing";
    if (fault.session.empty()) return {};
    if (!kind.apply) return "TLS handshakes belong to no session";
    return isImage ? "requests for images belong to no session" : "";
}

std::string textOf(double number) {
    std::array<char, 32> text{};
    const char* const end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    return {text.data(), static_cast<std::size_t>(end - text.data())};
}

}  // namespace

Fault parseFault(std::string_view rule) {
    if (rule.find(':') == rule.npos)
        reject(rule, std::string("is not a fault rule; write ") + faultForm +
                         ", as in user/unset:401:times=2" + statusHint(rule));
    auto rest = rule;
    Fault fault{.endpoint = endpointIn(next(rest, ':')), .kind = {}};
    auto what = next(rest, ':');
    fault.kind = next(what, '=');
    fault.argument = what;
    require(fault, rule);
    while (!rest.empty()) applyLimit(fault, next(rest, ':'));
    if (const auto reason = uselessBecause(fault); !reason.empty())
        reject(rule, "would never change anything: " + reason);
    return fault;
}

std::string ruleOf(const Fault& fault) {
    auto rule = fault.endpoint + ":" + fault.kind;
    if (!fault.argument.empty()) rule += "=" + fault.argument;
    if (fault.times) rule += ":times=" + std::to_string(*fault.times);
    if (fault.probability < 1) rule += ":p=" + textOf(fault.probability);
    if (!fault.session.empty()) rule += ":session=" + fault.session;
    return rule;
}

}  // namespace kivo::backend
