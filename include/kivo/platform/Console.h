#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "kivo/platform/Export.h"

namespace kivo::platform {

/// Where the lines go that tell what became of each operation: standard output, unless the host
/// takes them. Lines of different threads never mix. A standard output that is closed, broken or
/// full loses lines and harms nobody.
class KIVO_EXPORT Console {
public:
    /// Takes one whole line, without its line feed.
    using Output = std::function<void(std::string_view line)>;

    /// Writes one line. Nothing is printed once the process has begun to end, nor in a forked
    /// child.
    static void print(std::string line) noexcept;

    /// Hands every later line to `output` in place of standard output; an empty `output` turns back
    /// to that. It is called on any thread, several at once, with no lock held; what it throws is
    /// dropped. A line on its way may still reach the previous output.
    static void setOutput(Output output) noexcept;
};

}  // namespace kivo::platform
