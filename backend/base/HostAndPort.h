#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kivo::backend {

/// A port and a host, which is in lower case and without the brackets of an IPv6 address.
struct HostAndPort {
    std::string host;
    std::uint16_t port = 0;

    bool operator==(const HostAndPort&) const = default;
};

/// Parses "host:port", or "host" alone if a default port is given. Any other text gives
/// std::nullopt.
std::optional<HostAndPort> hostAndPort(std::string_view text,
                                       std::optional<std::uint16_t> portWhenMissing = {});

/// The host and port of an absolute https URL.
std::optional<HostAndPort> originOf(std::string_view url);

/// Whether the host is localhost, in 127.0.0.0/8, or ::1.
bool isLoopback(std::string_view host);

/// Whether the host is an IPv4 or IPv6 address.
bool isAddress(std::string_view host);

/// Whether the host has only characters that DNS names may have. IPv4 addresses pass too.
bool isDnsName(std::string_view host);

}  // namespace kivo::backend
