#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/base/HostAndPort.h"

namespace kivo::backend {

/// The hosts that the backend answers for in place of the real ones.
class Interception {
public:
    /// Adds the host and port of a base URL. An address outside loopback is left out, since our
    /// authority cannot certify it.
    void addBaseUrl(std::string_view url);

    /// Adds "NAME" on any port, or "NAME:PORT". Throws std::invalid_argument, with a message for
    /// the user, if it is not a DNS name.
    void addHost(std::string_view text);

    /// Whether "host:port" is intercepted.
    bool covers(std::string_view authority) const;

    /// Whether an entry of a no_proxy list covers a host that is intercepted.
    bool isCoveredBy(std::string_view noProxyEntry) const;

    /// The names of hosts outside loopback.
    std::vector<std::string> names() const;

    /// All hosts in one line, for users.
    std::string description() const;

private:
    struct Target {
        std::string host;
        std::optional<std::uint16_t> port;  ///< Absent: every port.
    };

    std::vector<Target> targets_;
};

}  // namespace kivo::backend
