#include "kivo/platform/system/FatalError.h"

#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

#include "kivo/platform/system/Output.h"
#include "kivo/platform/system/OutputSignals.h"
#include "kivo/platform/system/Process.h"

namespace kivo::platform {

namespace {

iovec piece(std::string_view text) {
    return {.iov_base = const_cast<char*>(text.data()), .iov_len = text.size()};
}

/// The lines before the fatal one tell how it came to this.
void letLinesOut() noexcept {
    const auto deadline = Output::Clock::now() + std::chrono::seconds(1);
    Output::shared().drain(deadline);
    Output::shared().drainSink(deadline);
}

}  // namespace

void fatalError(std::string_view message, std::string_view remedy) noexcept {
    if (Process::isUsable()) letLinesOut();
    const OutputSignals masked;  // A broken standard error must not hide the abort.
    const std::array pieces = {piece("Fatal error: "), piece(message), piece("\n"), piece(remedy),
                               piece(remedy.empty() ? "" : "\n")};
    [[maybe_unused]] const auto written = writev(STDERR_FILENO, pieces.data(), pieces.size());
    std::abort();
}

void foundNil(std::string_view remedy) noexcept {
    fatalError("Unexpectedly found nil while unwrapping an Optional value", remedy);
}

}  // namespace kivo::platform
