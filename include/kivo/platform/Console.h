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

    /// Writes `line`, which has no line feed. Nothing is printed once the process has begun to exit
    /// or in a forked child.
    static void print(std::string line) noexcept;

    /// Passes every later line to `output` instead of standard output; an empty `output` restores
    /// standard output. `output` is called on any thread, on several at once, with no lock held;
    /// exceptions that it throws are dropped. A line already on its way may still reach the
    /// previous output. If memory runs out, the previous output stays.
    static void setOutput(Output output) noexcept;
};

}  // namespace kivo::platform
