#pragma once

#include <csignal>

namespace kivo::platform {

/// Keeps SIGPIPE and SIGXFSZ from this thread while it writes, so that a broken pipe or a file size
/// limit is an error and not the host's end. At its end it takes back what the write raised; what
/// was pending before stays pending.
class OutputSignals {
public:
    OutputSignals() noexcept;
    ~OutputSignals();
    OutputSignals(const OutputSignals&) = delete;
    OutputSignals& operator=(const OutputSignals&) = delete;

private:
    sigset_t before_;  // The thread's mask.
    sigset_t drained_;
};

}  // namespace kivo::platform
