#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

namespace kivo::platform {

/// What is remembered of the hosts that were asked, in little memory: hosts with the same hash
/// share a note, which costs them time and nothing else.
class HostNotes {
public:
    enum class Speech : std::uint8_t { unknown, separate, multiplexed };

    struct Note {
        /// How often its connections have fallen out of favour. An HTTP/2 connection outlives the
        /// transfer that a limit ended on it; one that has gone silent would swallow every later
        /// request. Transfers of a newer generation do not share the connections of an older one.
        unsigned generation = 0;
        /// Whether transfers share a connection.
        Speech speech = Speech::unknown;
        /// Whether its address led nowhere, and is to be looked up anew.
        bool addressIsStale = false;
    };

    Note& of(std::string_view host) {
        return notes_[std::hash<std::string_view>()(host) % notes_.size()];
    }

private:
    static constexpr std::size_t count = 64;

    std::array<Note, count> notes_{};
};

}  // namespace kivo::platform
