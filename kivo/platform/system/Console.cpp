#include "kivo/platform/Console.h"

#include <utility>

#include "kivo/platform/system/CancellationShield.h"
#include "kivo/platform/system/Output.h"
#include "kivo/platform/system/Process.h"

namespace kivo::platform {

void Console::print(std::string line) noexcept {
    if (!Process::isUsable() || !Process::claim()) return;
    const CancellationShield uncancelled;
    try {
        platform::Output::shared().add(std::move(line));
    } catch (...) {  // No memory: the line is lost, and nothing else.
    }
}

void Console::setOutput(Output output) noexcept {
    if (!Process::claim()) return;
    const CancellationShield uncancelled;
    try {
        platform::Output::shared().setSink(std::move(output));
    } catch (...) {  // No memory, or no thread: lines go where they went before.
    }
}

}  // namespace kivo::platform
