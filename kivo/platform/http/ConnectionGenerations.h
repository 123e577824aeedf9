#pragma once

#include <array>
#include <functional>
#include <string_view>

namespace kivo::platform {

/// Counts for each host how often its connections were given up. An HTTP/2 connection outlives a
/// transfer that a limit ended on it, and one that has gone silent would swallow every later
/// request, so transfers of a newer generation do not share the connections of an older one. Hosts
/// with the same hash share a count, which costs them nothing but a fresh connection.
class ConnectionGenerations {
public:
    unsigned of(std::string_view host) const { return counts_[slot(host)]; }

    /// Ends the generation `last` unless it has ended already, so that several transfers on one
    /// connection end it once.
    void renew(std::string_view host, unsigned last) {
        if (of(host) == last) ++counts_[slot(host)];
    }

private:
    static constexpr std::size_t slots = 64;
    static std::size_t slot(std::string_view host) {
        return std::hash<std::string_view>()(host) % slots;
    }

    std::array<unsigned, slots> counts_{};
};

}  // namespace kivo::platform
