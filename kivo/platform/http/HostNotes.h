#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

namespace kivo::platform {

/// What is remembered about hosts, in a fixed amount of memory: hosts whose names collide share a
/// note, which costs some time, or one of them more connections, and nothing else.
class HostNotes {
public:
    enum class Speech : std::uint8_t { unknown, separate, multiplexed };

    struct Note {
        /// How often its connections have been given up. An HTTP/2 connection outlives a transfer
        /// that timed out on it, and if it has gone silent, it swallows every later request. So
        /// transfers of a newer generation do not share the connections of an older one.
        unsigned generation = 0;
        /// Whether its transfers share a connection.
        Speech speech = Speech::unknown;
        /// Whether no connection to its address could be made, so that it must be looked up again.
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
