#include "kivo/c/LineOutput.h"

#include <utility>

#include "kivo/platform/Console.h"
#include "kivo/platform/base/Mutex.h"
#include "kivo/platform/system/CancellationShield.h"
#include "kivo/platform/system/Output.h"
#include "kivo/platform/system/Process.h"

namespace kivo::c {

namespace {

using Callback = std::shared_ptr<LineCallback>;

/// The console's output and the callback in it change together.
constinit platform::Mutex mutex;
constinit const Callback* callbackInUse KIVO_GUARDED_BY(mutex) =
    nullptr;  // Owned; never freed at exit.

/// Returns the callback that was in use.
std::unique_ptr<const Callback> exchange(platform::Console::Output output,
                                         std::unique_ptr<const Callback> callback) {
    const platform::Lock lock(mutex);
    platform::Output::shared().setSink(std::move(output));
    return std::unique_ptr<const Callback>(std::exchange(callbackInUse, callback.release()));
}

void replace(platform::Console::Output output, std::unique_ptr<const Callback> callback = {}) {
    if (!platform::Process::claim()) return;
    const platform::CancellationShield uncancelled;
    if (const auto previous = exchange(std::move(output), std::move(callback)))
        (*previous)->retire();
}

}  // namespace

void sendLinesToStandardOutput() { replace(nullptr); }

void sendLinesTo(std::shared_ptr<LineDescriptor> descriptor) {
    replace(
        [descriptor = std::move(descriptor)](std::string_view line) { descriptor->write(line); });
}

void sendLinesTo(std::shared_ptr<LineCallback> callback) {
    auto inUse = std::make_unique<const Callback>(callback);
    replace([callback =
                 std::move(callback)](std::string_view line) { callback->call(std::string(line)); },
            std::move(inUse));
}

}  // namespace kivo::c
