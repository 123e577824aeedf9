#include "backend/journal/Contract.h"

#include <algorithm>
#include <array>
#include <utility>

#include "backend/journal/ContractBody.h"
#include "backend/journal/ContractPath.h"
#include "backend/journal/TokenNames.h"

namespace kivo::backend {

namespace {

using Part = Violation::Part;
constexpr std::size_t violationLimit = 20;

struct IdentityHeader {
    std::string_view name;
    std::string_view value;  ///< Empty when it varies.
    bool mayBeEmpty = false;
};

constexpr std::array<IdentityHeader, 6> identityHeaders{{
    {"Content-Type", "application/json"},
    {"x-sdk-version", "1.0.0"},
    {"x-platform", "IOS"},
    {"x-package-name", ""},
    {"x-session-id", "", true},
    {"x-unique-device-id", "", true},
}};

/// What is wrong with the header after its name; empty if nothing is.
std::string defectOf(const IdentityHeader& header, const std::vector<std::string>& values) {
    if (values.empty()) return " is missing";
    if (values.size() > 1)
        return " appears " + std::to_string(values.size()) + " times; it must appear once";
    const auto& value = values.front();
    if (!header.value.empty() && value != header.value)
        return " is " + inQuotes(value) + "; it must be " + inQuotes(header.value);
    return value.empty() && !header.mayBeEmpty ? " is empty" : "";
}

void checkHeader(const Request& request, const IdentityHeader& header, Violations& found) {
    const std::string name(header.name);
    const auto defect = defectOf(header, request.values(name));
    if (!defect.empty()) found.push_back({Part::header, name + defect, name});
}

Violation ofAuthorization(std::string text) {
    return {Part::header, std::move(text), "Authorization"};
}

bool useOne(std::size_t& allowance) {
    if (allowance == 0) return false;
    --allowance;
    return true;
}

/// The characters of RFC 6750's b64token, of which every token that this backend issues consists.
bool isSendable(char letter) {
    constexpr std::string_view others = "-._~+/=";
    return (letter >= '0' && letter <= '9') || (letter >= 'a' && letter <= 'z') ||
           (letter >= 'A' && letter <= 'Z') || others.find(letter) != others.npos;
}

std::vector<std::string_view> splitAtCommas(std::string_view line) {
    std::vector<std::string_view> values;
    for (auto comma = line.find(','); comma != line.npos; comma = line.find(',')) {
        values.push_back(line.substr(0, comma));
        line.remove_prefix(comma + 1);
    }
    values.push_back(line);
    return values;
}

std::string_view tokenIn(std::string_view value) {
    constexpr std::string_view start = "Bearer ";
    return value.starts_with(start) ? value.substr(start.size()) : "";
}

std::string tokenText(TokenKind kind) { return std::string(nameOf(kind)) + " token"; }

}  // namespace

Violations Contract::violations(const Request& request) {
    Violations found;
    if (isPreflight(request)) return found;
    const auto* endpoint = endpointAt(request.path());
    if (!endpoint && resemblesContract(request.path()))
        found.push_back({Part::path, "the path is not one of the contract's five"});
    if (!endpoint) return found;
    checkRedirectable(request, *endpoint, found);
    for (const auto& header : identityHeaders) checkHeader(request, header, found);
    checkAuthorization(request, *endpoint, found);
    const auto repeated = std::ranges::unique(found);
    found.erase(repeated.begin(), repeated.end());
    if (found.size() > violationLimit) found.resize(violationLimit);
    return found;
}

void Contract::remember(const Request& request, const Reply& reply) {
    const auto* endpoint = endpointAt(request.path());
    if (!endpoint) return;
    auto& allowed = allowances_[endpoint->name];
    const bool redirects = reply.status >= 301 && reply.status <= 308 && reply.status != 304;
    if (redirects) ++allowed.redirected;
    if (redirects && reply.status <= 303) ++allowed.turnedToGet;
    const bool givesUserToken = endpoint->bearer == TokenKind::merchant;
    for (const auto& token : givenTokens(reply)) {
        if (token.empty()) ++(givesUserToken ? emptyUserTokens_ : emptyMerchantTokens_);
        gaveUnsendableToken_ = gaveUnsendableToken_ || !std::ranges::all_of(token, isSendable);
    }
}

/// The method, the query and the body: a redirect may change the first two and drop the third.
void Contract::checkRedirectable(const Request& request, const Endpoint& endpoint,
                                 Violations& found) {
    auto& allowed = allowances_[endpoint.name];
    const bool hasQuery = request.target.find_first_of("?#") != request.target.npos;
    if (hasQuery && !useOne(allowed.redirected))
        found.push_back({Part::path, "the path has a query"});
    if (request.method == "GET" && request.body.empty() && useOne(allowed.turnedToGet)) return;
    if (request.method != endpoint.method)
        found.push_back({Part::method, "the method is " + inQuotes(request.method) +
                                           "; it must be " + std::string(endpoint.method)});
    for (auto& violation : bodyViolations(request, endpoint)) found.push_back(std::move(violation));
}

/// A resent request carries the refused user tokens before the new one: that is how the SDK
/// refreshes. User authentication starts from the original request each time and carries one.
void Contract::checkAuthorization(const Request& request, const Endpoint& endpoint,
                                  Violations& found) {
    const auto lines = request.values("Authorization");
    if (!endpoint.bearer) {
        if (!lines.empty()) found.push_back(ofAuthorization("Authorization must not be sent"));
        return;
    }
    if (lines.empty()) return checkAbsence(endpoint, found);
    if (lines.size() > 1)
        found.push_back(ofAuthorization("Authorization appears in " + std::to_string(lines.size()) +
                                        " lines; its values must be in one, joined by commas"));
    for (const auto& line : lines) {
        const auto values = splitAtCommas(line);
        if (values.size() > 1 && endpoint.bearer == TokenKind::merchant)
            found.push_back(ofAuthorization("Authorization carries " +
                                            std::to_string(values.size()) +
                                            " merchant tokens; it must carry one"));
        for (const auto value : values) checkValue(value, endpoint, found);
        checkOrder(values, found);
    }
}

/// A renewal that returns an empty user token leaves the request without Authorization.
void Contract::checkAbsence(const Endpoint& endpoint, Violations& found) {
    if (gaveUnsendableToken_) return;
    if (endpoint.bearer == TokenKind::user && useOne(emptyUserTokens_)) return;
    found.push_back(ofAuthorization("Authorization is missing; it must carry a " +
                                    tokenText(*endpoint.bearer)));
}

void Contract::checkValue(std::string_view value, const Endpoint& endpoint, Violations& found) {
    if (value.starts_with(' '))
        return found.push_back(
            ofAuthorization("the values of Authorization are joined by more than a comma"));
    const auto scheme = value.substr(0, value.find(' '));
    if (scheme != "Bearer")
        return found.push_back(ofAuthorization("the scheme of Authorization is " +
                                               inQuotes(scheme) + "; it must be \"Bearer\""));
    const auto token = tokenIn(value);
    if (!token.empty()) return checkToken(token, *endpoint.bearer, found);
    if (endpoint.bearer == TokenKind::merchant && useOne(emptyMerchantTokens_)) return;
    found.push_back(ofAuthorization("a bearer value has no token"));
}

void Contract::checkToken(std::string_view token, TokenKind expected, Violations& found) const {
    if (!std::ranges::all_of(token, isSendable))
        return found.push_back(
            ofAuthorization("the token after \"Bearer \" is malformed: " + inQuotes(token)));
    const auto issued = issued_(token);
    const auto claims = issued ? issued : readClaims(token);
    if (!claims || claims->kind == expected) return;
    const auto name = issued ? " " + inQuotes(claims->name) : " of another backend";
    found.push_back(ofAuthorization("Authorization carries " + tokenText(claims->kind) + name +
                                    " instead of a " + tokenText(expected)));
}

/// Tokens are numbered as they are issued, and each renewal adds its token at the end. A seed
/// repeats the numbers of an earlier run, so nothing follows from them; it leaves out the times.
void Contract::checkOrder(const std::vector<std::string_view>& values, Violations& found) const {
    std::uint64_t last = 0;
    for (const auto value : values) {
        const auto claims = issued_(tokenIn(value));
        if (!claims || !claims->hasTimes) continue;
        const auto number = numberIn(claims->name);
        if (number < last)
            return found.push_back(ofAuthorization("the new token stands before the refused one: " +
                                                   inQuotes(claims->name) + " must come first"));
        last = number;
    }
}

bool isPreflight(const Request& request) {
    return request.method == "OPTIONS" && !request.values("Origin").empty() &&
           !request.values("Access-Control-Request-Method").empty();
}

}  // namespace kivo::backend
