#include "backend/base/HostAndPort.h"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/asio/ip/address.hpp>

#include <algorithm>
#include <locale>

#include "backend/base/Number.h"

namespace kivo::backend {

namespace {

constexpr std::uint16_t httpsPort = 443;

std::optional<boost::asio::ip::address> addressIn(std::string_view host) {
    boost::system::error_code error;
    const auto address = boost::asio::ip::make_address(std::string(host), error);
    return error ? std::nullopt : std::optional(address);
}

std::optional<std::uint16_t> portIn(std::string_view digits) {
    const auto port = parseNumber<std::uint16_t>(digits);
    return port == 0 ? std::nullopt : port;
}

/// The end of the host: after the bracket of an IPv6 address, or at the first colon.
std::size_t endOfHost(std::string_view text) {
    if (text.starts_with('[')) return std::min(text.find(']'), text.size() - 1) + 1;
    return std::min(text.find(':'), text.size());
}

std::string plainHost(std::string_view host) {
    if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
    std::string lower(host);
    boost::algorithm::to_lower(lower, std::locale::classic());
    return lower;
}

}  // namespace

std::optional<HostAndPort> hostAndPort(std::string_view text,
                                       std::optional<std::uint16_t> portWhenMissing) {
    const auto end = endOfHost(text);
    const auto rest = text.substr(end);
    const auto port = rest.starts_with(':') ? portIn(rest.substr(1)) : portWhenMissing;
    if (end == 0 || !port || (!rest.empty() && rest.front() != ':')) return std::nullopt;
    return HostAndPort{.host = plainHost(text.substr(0, end)), .port = *port};
}

std::optional<HostAndPort> originOf(std::string_view url) {
    constexpr std::string_view scheme = "https://";
    if (!url.starts_with(scheme)) return std::nullopt;
    url.remove_prefix(scheme.size());
    return hostAndPort(url.substr(0, url.find('/')), httpsPort);
}

bool isLoopback(std::string_view host) {
    const auto address = addressIn(host);
    return address ? address->is_loopback() : host == "localhost";
}

bool isAddress(std::string_view host) { return addressIn(host).has_value(); }

bool isDnsName(std::string_view host) {
    constexpr std::string_view others = "-.0123456789";
    const bool beginsWell = !host.empty() && host.front() != '-' && host.front() != '.';
    return beginsWell && std::ranges::all_of(host, [&](char letter) {
               return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
                      others.find(letter) != others.npos;
           });
}

}  // namespace kivo::backend
