#include "kivo/platform/system/OutputSignals.h"

#include <cerrno>
#include <ctime>

#include "kivo/platform/system/Thread.h"

namespace kivo::platform {

namespace {

bool takePending(const sigset_t& signals) {
    constexpr timespec atOnce{};
    return sigtimedwait(&signals, nullptr, &atOnce) > 0 || errno == EINTR;
}

void leaveOutIfPending(int signal, sigset_t& signals) {
    sigset_t pending;
    sigpending(&pending);
    if (sigismember(&pending, signal) == 1) sigdelset(&signals, signal);
}

}  // namespace

OutputSignals::OutputSignals() noexcept : isHosts_(!isOwnThread()) {
    if (!isHosts_) return;
    sigemptyset(&drained_);
    sigaddset(&drained_, SIGPIPE);
    sigaddset(&drained_, SIGXFSZ);
    pthread_sigmask(SIG_BLOCK, &drained_, &before_);
    leaveOutIfPending(SIGPIPE, drained_);
    leaveOutIfPending(SIGXFSZ, drained_);
}

OutputSignals::~OutputSignals() {
    if (!isHosts_) return;
    while (takePending(drained_)) continue;
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

}  // namespace kivo::platform
