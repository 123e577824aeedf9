#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "kivo/platform/Export.h"
#include "kivo/platform/HostFlags.h"

namespace kivo::platform {

/// Receives the lines that report each operation's outcome and writes them to standard output,
/// unless the host takes them. Lines from different threads never mix. If standard output is
/// closed or broken, or its disk is full, lines are lost and the host is not affected.
class KIVO_EXPORT Console {
public:
    /// Receives one whole line without its line feed. A token or an address within it is as the
    /// server or the notification gave it, control characters and line feeds included.
    using Output = std::function<void(std::string_view line)>;

    /// Prints `line` and a line feed behind what the calling thread has printed before,
    /// with std::cout too, unless std::ios::sync_with_stdio(false) gave that a buffer of its own.
    /// It never waits: lines that standard output does not take at once follow in the background.
    /// Lines go to the standard output that the process had when it first used Kivo; they are lost
    /// if its descriptor is closed or redirected later, once the process has begun to exit, and in
    /// a forked child.
    static void print(std::string line) noexcept;

    /// Passes every later line to `output` instead of standard output; an empty `output` restores
    /// standard output. `output` is called for one line at a time, on a thread of its own, with no
    /// lock held; exceptions that it throws are dropped. While it is slow, lines queue up; beyond
    /// 1 MiB of them operations wait too. Lines that are queued when the process exits are lost.
    /// `output` may still run after another output has been set and while the process exits: what
    /// it uses must not be destroyed before then. If memory or threads run out, the previous output
    /// stays.
    static void setOutput(Output output) noexcept;
};

}  // namespace kivo::platform
