#pragma once

#include <csignal>

namespace kivo::platform {

/// Blocks SIGPIPE and SIGXFSZ on this thread while it writes, so that a broken pipe or a file size
/// limit is an error and does not kill the host. The destructor discards the signals that the write
/// raised; one that was pending before stays pending. Kivo's own threads always block both, so
/// nothing is done there.
class OutputSignals {
public:
    OutputSignals() noexcept;
    ~OutputSignals();
    OutputSignals(const OutputSignals&) = delete;
    OutputSignals& operator=(const OutputSignals&) = delete;

private:
    const bool isHosts_;  // Whether this thread belongs to the host.
    sigset_t before_;     // The thread's mask.
    sigset_t drained_;
};

}  // namespace kivo::platform
