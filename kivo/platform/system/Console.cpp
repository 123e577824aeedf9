#include "kivo/platform/Console.h"

#include <stdio_ext.h>

#include <cstdio>
#include <memory>
#include <utility>

#include "kivo/platform/base/Mutex.h"
#include "kivo/platform/system/CancellationShield.h"
#include "kivo/platform/system/OutputSignals.h"
#include "kivo/platform/system/Process.h"

namespace kivo::platform {

namespace {

struct Destination {
    Mutex mutex;
    std::shared_ptr<const Console::Output> output KIVO_GUARDED_BY(mutex);  // Null: standard output.
};

Destination& destination() {
    static Destination& shared = *new Destination;
    return shared;
}

std::shared_ptr<const Console::Output> currentOutput() {
    Destination& current = destination();
    const Lock lock(current.mutex);
    return current.output;
}

/// A failure that lost only our line leaves no error flag behind, which the host might take for its
/// own.
void writeLocked(const std::string& text) {
    const bool isHostsToo = ferror_unlocked(stdout) != 0 || __fpending(stdout) > 0;
    const bool isWritten = fwrite_unlocked(text.data(), 1, text.size(), stdout) == text.size();
    if ((!isWritten || fflush_unlocked(stdout) != 0) && !isHostsToo) clearerr_unlocked(stdout);
}

void writeToStandardOutput(std::string line) {
    line += '\n';
    const OutputSignals masked;
    flockfile(stdout);
    writeLocked(line);
    funlockfile(stdout);
}

}  // namespace

void Console::print(std::string line) noexcept {
    if (!Process::isUsable()) return;
    const CancellationShield uncancelled;
    try {
        if (const auto output = currentOutput()) {
            (*output)(line);
        } else {
            writeToStandardOutput(std::move(line));
        }
    } catch (...) {  // The line is lost, by the host's sink or a lack of memory.
    }
}

void Console::setOutput(Output output) noexcept {
    if (!Process::isOwn()) return;
    const CancellationShield uncancelled;
    try {
        auto next = output ? std::make_shared<const Output>(std::move(output)) : nullptr;
        Destination& current = destination();
        const Lock lock(current.mutex);
        current.output.swap(next);
    } catch (...) {  // No memory: lines go where they went before.
    }
}

}  // namespace kivo::platform
