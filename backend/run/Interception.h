#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/base/HostAndPort.h"

namespace kivo::backend {

/// The hosts that a backend answers for, though they are somebody else's.
class Interception {
public:
    /// Of a base URL, its host and port. One that names an address beyond loopback is left out: no
    /// authority of ours may speak for it.
    void addBaseUrl(std::string_view url);

    /// "NAME" on any port, or "NAME:PORT". Throws std::invalid_argument, with a text that says what
    /// to write, for what is no DNS name.
    void addHost(std::string_view text);

    /// Whether "host:port" is one of them.
    bool covers(std::string_view authority) const;

    /// The names beyond loopback.
    std::vector<std::string> names() const;

    /// For people to read.
    std::string description() const;

private:
    struct Target {
        std::string host;
        std::optional<std::uint16_t> port;  ///< Absent: every port.
    };

    std::vector<Target> targets_;
};

}  // namespace kivo::backend
