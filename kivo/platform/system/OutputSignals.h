#pragma once

#include <csignal>

namespace kivo::platform {

/// Keeps SIGPIPE and SIGXFSZ from this thread while it writes, so that a broken pipe or a file size
/// limit is an error and not the host's end. At its end it takes back what the write raised; what
/// was pending before stays pending. Our own threads block both for good, and nobody waits for them
/// there.
class OutputSignals {
public:
    OutputSignals() noexcept;
    ~OutputSignals();
    OutputSignals(const OutputSignals&) = delete;
    OutputSignals& operator=(const OutputSignals&) = delete;

private:
    const bool isHosts_;  // Whether this thread is the host's.
    sigset_t before_;     // The thread's mask.
    sigset_t drained_;
};

}  // namespace kivo::platform
