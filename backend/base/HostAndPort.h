#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kivo::backend {

/// A host, in lower case and without the brackets of an IPv6 address, and a port.
struct HostAndPort {
    std::string host;
    std::uint16_t port = 0;

    bool operator==(const HostAndPort&) const = default;
};

/// Reads "host:port", or "host" alone where a port is given for that case. Nothing for what is
/// neither.
std::optional<HostAndPort> hostAndPort(std::string_view text,
                                       std::optional<std::uint16_t> portWhenMissing = {});

/// Of an absolute https URL.
std::optional<HostAndPort> originOf(std::string_view url);

/// localhost, 127.0.0.0/8 and ::1.
bool isLoopback(std::string_view host);

/// Whether the host is an IP address, of either kind.
bool isAddress(std::string_view host);

/// Whether the host consists of what DNS names consist of; addresses of IPv4 do as well.
bool isDnsName(std::string_view host);

}  // namespace kivo::backend
