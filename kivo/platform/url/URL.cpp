#include "kivo/platform/url/URL.h"

#include <arpa/inet.h>
#include <idn2.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>

#include "kivo/platform/base/CharacterSet.h"

namespace kivo::platform {

namespace {

constexpr int beyondAnyPort = 65536;

constexpr CharacterSet hexadecimalDigits =
    decimalDigits | CharacterSet('a', 'f') | CharacterSet('A', 'F');
constexpr CharacterSet inScheme = alphanumerics | CharacterSet("+-.");
constexpr CharacterSet ascii('\0', '\x7F');
constexpr CharacterSet plainInHost =
    (CharacterSet('\0', ' ') | CharacterSet("<>\"\\^{}|[]\x7F")).inverted();

/// The characters that each part of a URL may hold unescaped.
constexpr CharacterSet allowedInHost = alphanumerics | CharacterSet("-._~!$&'()*+,;=");
constexpr CharacterSet allowedInUserInfo = allowedInHost | CharacterSet(":");
constexpr CharacterSet allowedInPath = allowedInHost | CharacterSet(":@/");
constexpr CharacterSet allowedInQuery = allowedInPath | CharacterSet("?");

/// Everything up to the delimiters of the next part.
constexpr CharacterSet untilScheme = CharacterSet(":/?#[]@").inverted();
constexpr CharacterSet untilPath = CharacterSet("/?#").inverted();
constexpr CharacterSet untilQuery = CharacterSet("?#").inverted();
constexpr CharacterSet untilFragment = CharacterSet("#").inverted();
constexpr CharacterSet untilZone = CharacterSet("%").inverted();
constexpr CharacterSet untilEnd = CharacterSet("").inverted();

bool isEscape(std::string_view text) {
    return text.size() >= 3 && text[0] == '%' && hexadecimalDigits.containsAll(text.substr(1, 2));
}

std::string percentEncoded(char c) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    return {'%', digits[byte >> 4U], digits[byte & 0x0FU]};
}

std::string encoded(std::string_view text, const CharacterSet& allowed) {
    std::string result;
    for (;;) {
        const auto plain = allowed.prefixLength(text);
        result += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty()) return result;
        result += isEscape(text) ? "%" : percentEncoded(text.front());
        text.remove_prefix(1);
    }
}

std::string lowered(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return result;
}

/// Removes the longest prefix of `rest` that consists of `characters`, and returns it.
std::string_view takeWhile(const CharacterSet& characters, std::string_view& rest) {
    const auto taken = rest.substr(0, characters.prefixLength(rest));
    rest.remove_prefix(taken.size());
    return taken;
}

bool isScheme(std::string_view text) {
    return !text.empty() && letters.contains(text.front()) && inScheme.containsAll(text);
}

/// Whether `text` is an address in brackets, optionally with a zone.
bool isIPv6Literal(std::string_view text) {
    if (!text.starts_with('[') || !text.ends_with(']')) return false;
    auto zone = text.substr(1, text.size() - 2);
    const std::string address(takeWhile(untilZone, zone));
    in6_addr parsed{};
    if (address.find('\0') != std::string::npos ||
        inet_pton(AF_INET6, address.c_str(), &parsed) != 1)
        return false;
    return zone.empty() ||
           (zone.starts_with("%25") && zone.size() > 3 && encoded(zone, allowedInHost) == zone);
}

/// The IDNA form of a host that is not ASCII, or empty if it has none. IDNA maps a full-width slash
/// to a plain one, and so on: a form that would end the host early does not count.
std::optional<std::string> idnaForm(const std::string& host) {
    std::uint8_t* found = nullptr;
    const int status = idn2_lookup_u8(reinterpret_cast<const std::uint8_t*>(host.c_str()), &found,
                                      IDN2_NFC_INPUT | IDN2_NONTRANSITIONAL);
    if (status == IDN2_MALLOC) throw std::bad_alloc();
    if (status != IDN2_OK) return std::nullopt;
    const std::unique_ptr<std::uint8_t, decltype(&idn2_free)> owned(found, &idn2_free);
    std::string form = reinterpret_cast<const char*>(found);
    if (form.empty() || !allowedInHost.containsAll(form)) return std::nullopt;
    return form;
}

/// How a URL spells the name `host`, or empty if it is not a host.
std::optional<std::string> hostName(std::string_view host) {
    if (!plainInHost.containsAll(host)) return std::nullopt;
    if (!ascii.containsAll(host)) return idnaForm(std::string(host));
    return encoded(host, allowedInHost);
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
    url.text_ += encoded(takeWhile(untilQuery, text), allowedInPath);
    url.takeMarked('?', text);
    url.takeMarked('#', text);
    return url;
}

bool URL::takeScheme(std::string_view& rest) {
    const auto end = untilScheme.prefixLength(rest);
    if (end == rest.size() || rest[end] != ':') return true;
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
    auto authority = takeWhile(untilPath, rest);
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
    const auto written = isIPv6Literal(host) ? std::string(host) : hostName(host);
    if (!written) return false;
    text_ += *written;
    host_ = lowered(*written);
    return true;
}

bool URL::takePort(std::string_view colonAndPort) {
    if (colonAndPort.empty()) return true;
    const auto digits = colonAndPort.substr(1);
    if (!decimalDigits.containsAll(digits)) return false;
    text_ += colonAndPort;
    if (!digits.empty()) port_ = portNumber(digits);
    return true;
}

void URL::takeMarked(char mark, std::string_view& rest) {
    if (!rest.starts_with(mark)) return;
    rest.remove_prefix(1);
    text_ +=
        mark + encoded(takeWhile(mark == '?' ? untilFragment : untilEnd, rest), allowedInQuery);
}

bool URL::hasSameOrigin(const URL& other) const {
    return scheme_ == other.scheme_ && host_ == other.host_ && port_ == other.port_;
}

}  // namespace kivo::platform
