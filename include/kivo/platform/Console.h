#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "kivo/platform/Export.h"
#include "kivo/platform/HostFlags.h"

namespace kivo::platform {

/// Receives the lines that report each operation's outcome and writes them to standard output,
/// unless the host takes them. Lines from different threads never mix. If standard output is
/// closed, broken or full, lines are lost and the host is not affected.
class KIVO_EXPORT Console {
public:
    /// Receives one whole line without its line feed.
    using Output = std::function<void(std::string_view line)>;

    /// Has `line`, which has no line feed, written soon, in the order of the calls; waits for
    /// nothing. Nothing is printed once the process has begun to exit or in a forked child.
    static void print(std::string line) noexcept;

    /// Passes every later line to `output` instead of standard output; an empty `output` restores
    /// standard output. `output` is called for one line at a time, on a thread of its own, with no
    /// lock held; exceptions that it throws are dropped. While it takes its time, lines wait, and
    /// once a mebibyte of them waits, operations wait too. If memory or threads run out, the
    /// previous output stays.
    static void setOutput(Output output) noexcept;
};

}  // namespace kivo::platform
