#include "kivo/platform/URL.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>

namespace kivo::platform {

namespace {

constexpr int beyondAnyPort = 65536;

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
constexpr bool isHexadecimal(char c) {
    return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

/// The characters that stand for themselves in one part of a URL: those that may in any, and
/// `more`.
class Allowed {
public:
    constexpr explicit Allowed(std::string_view more) {
        for (char c = 1; c < 127; ++c) set(c, isDigit(c) || isLetter(c));
        for (const char c : std::string_view("-._~!$&'()*+,;=")) set(c, true);
        for (const char c : more) set(c, true);
    }

    constexpr bool contains(char c) const { return table_[static_cast<unsigned char>(c)]; }

private:
    constexpr void set(char c, bool allowed) { table_[static_cast<unsigned char>(c)] = allowed; }

    std::array<bool, 256> table_{};
};

constexpr Allowed allowedInHost("");
constexpr Allowed allowedInUserInfo(":");
constexpr Allowed allowedInPath(":@/");
constexpr Allowed allowedInQuery(":@/?");

bool isEscape(std::string_view text) {
    return text.size() >= 3 && text[0] == '%' && isHexadecimal(text[1]) && isHexadecimal(text[2]);
}

std::string encoded(std::string_view text, const Allowed& allowed) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string result;
    for (std::size_t index = 0; index < text.size(); ++index) {
        const auto byte = static_cast<unsigned char>(text[index]);
        if (allowed.contains(text[index]) || isEscape(text.substr(index, 3))) {
            result += text[index];
        } else {
            result.append({'%', digits[byte >> 4U], digits[byte & 0x0FU]});
        }
    }
    return result;
}

std::string lowered(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return result;
}

/// Takes off what comes before the first of `ends`, or all there is.
std::string_view takeUntil(std::string_view& rest, const char* ends) {
    const auto taken = rest.substr(0, rest.find_first_of(ends));
    rest.remove_prefix(taken.size());
    return taken;
}

bool isScheme(std::string_view text) {
    const auto isInner = [](char c) {
        return isLetter(c) || isDigit(c) || c == '+' || c == '-' || c == '.';
    };
    return !text.empty() && isLetter(text.front()) && std::ranges::all_of(text, isInner);
}

/// Whether `text` is an address in brackets, with a zone perhaps.
bool isIPv6Literal(std::string_view text) {
    if (!text.starts_with('[') || !text.ends_with(']')) return false;
    auto zone = text.substr(1, text.size() - 2);
    const std::string address(takeUntil(zone, "%"));
    in6_addr parsed{};
    if (address.find('\0') != std::string::npos ||
        inet_pton(AF_INET6, address.c_str(), &parsed) != 1)
        return false;
    return zone.empty() ||
           (zone.starts_with("%25") && zone.size() > 3 && encoded(zone, allowedInHost) == zone);
}

bool isPlainHost(std::string_view text) {
    const auto cannotBeInHost = [](char c) {
        return (c >= 0 && c < 0x20) || c == 0x7F ||
               std::string_view(" <>\"\\^{}|[]").find(c) != std::string_view::npos;
    };
    return std::ranges::none_of(text, cannotBeInHost);
}

int defaultPort(std::string_view scheme) {
    return scheme == "http" ? 80 : scheme == "https" ? 443 : 0;
}

int portNumber(std::string_view digits) {
    int number = 0;
    for (const char digit : digits) number = std::min(number * 10 + (digit - '0'), beyondAnyPort);
    return number;
}

}  // namespace

std::optional<URL> URL::parse(std::string_view text) {
    URL url;
    if (text.empty() || !url.takeScheme(text) || !url.takeAuthority(text)) return std::nullopt;
    url.text_ += encoded(takeUntil(text, "?#"), allowedInPath);
    url.takeMarked('?', text);
    url.takeMarked('#', text);
    return url;
}

bool URL::takeScheme(std::string_view& rest) {
    const auto end = rest.find_first_of(":/?#[]@");
    if (end == std::string_view::npos || rest[end] != ':') return true;
    const auto scheme = rest.substr(0, end);
    if (!isScheme(scheme)) return false;
    text_ = rest.substr(0, end + 1);
    scheme_ = lowered(scheme);
    port_ = defaultPort(scheme_);
    rest.remove_prefix(end + 1);
    return true;
}

bool URL::takeAuthority(std::string_view& rest) {
    if (!rest.starts_with("//")) return true;
    text_ += "//";
    rest.remove_prefix(2);
    auto authority = takeUntil(rest, "/?#");
    if (const auto end = authority.rfind('@'); end != std::string_view::npos) {
        text_ += encoded(authority.substr(0, end), allowedInUserInfo) + '@';
        authority.remove_prefix(end + 1);
    }
    const auto literalEnd =
        authority.starts_with('[') ? authority.rfind(']') : std::string_view::npos;
    const auto colon = authority.find(':', literalEnd == std::string_view::npos ? 0 : literalEnd);
    return takeHost(authority.substr(0, colon)) &&
           takePort(authority.substr(std::min(colon, authority.size())));
}

bool URL::takeHost(std::string_view host) {
    const bool isLiteral = isIPv6Literal(host);
    if (!isLiteral && !isPlainHost(host)) return false;
    const std::string written = isLiteral ? std::string(host) : encoded(host, allowedInHost);
    text_ += written;
    host_ = lowered(written);
    return true;
}

bool URL::takePort(std::string_view colonAndPort) {
    if (colonAndPort.empty()) return true;
    const auto digits = colonAndPort.substr(1);
    if (!std::ranges::all_of(digits, isDigit)) return false;
    text_ += colonAndPort;
    if (!digits.empty()) port_ = portNumber(digits);
    return true;
}

void URL::takeMarked(char mark, std::string_view& rest) {
    if (!rest.starts_with(mark)) return;
    rest.remove_prefix(1);
    text_ += mark + encoded(takeUntil(rest, mark == '?' ? "#" : ""), allowedInQuery);
}

bool URL::hasSameOrigin(const URL& other) const {
    return scheme_ == other.scheme_ && host_ == other.host_ && port_ == other.port_;
}

}  // namespace kivo::platform
