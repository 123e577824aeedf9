#include "kivo/platform/system/Thread.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <thread>
#include <utility>

namespace kivo::platform {

namespace {

thread_local bool startedHere = false;

/// While it lives, threads started here inherit a mask that blocks the host's signals.
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS, SIGPROF})
            sigdelset(&blocked, fault);
        pthread_sigmask(SIG_SETMASK, &blocked, &before_);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t before_{};
};

/// Asks the kernel not to preempt other threads for this one. The thread that wakes it, often one
/// of the host's, continues undisturbed, and this one later finds several pieces of work at once.
void avoidPreempting() {
    const sched_param noPriority{};
    pthread_setschedparam(pthread_self(), SCHED_BATCH, &noPriority);
}

}  // namespace

void startThread(const char* name, std::function<void()> body) {
    const BlockedSignals inherited;
    std::thread([name, body = std::move(body)] {
        startedHere = true;
        pthread_setname_np(pthread_self(), name);
        avoidPreempting();
        body();
    }).detach();
}

bool isOwnThread() noexcept { return startedHere; }

void parkThread() {
    for (;;) pause();
}

}  // namespace kivo::platform
