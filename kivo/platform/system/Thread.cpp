#include "kivo/platform/system/Thread.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <memory>
#include <system_error>
#include <utility>

namespace kivo::platform {

namespace {

/// Enough for the libraries and the deepest JSON. A host that locks its memory pays for all of it.
constexpr std::size_t smallStack = 1U << 20U;

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

struct Start {
    const char* name;
    std::function<void()> body;
};

void* runThread(void* context) {
    const std::unique_ptr<Start> start(static_cast<Start*>(context));
    startedHere = true;
    pthread_setname_np(pthread_self(), start->name);
    avoidPreempting();
    start->body();
    return nullptr;
}

/// Creates a detached thread with a stack of `stackSize` bytes, or of the default size for 0;
/// returns an error number or 0.
int create(Start& start, std::size_t stackSize) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    if (stackSize != 0) pthread_attr_setstacksize(&attributes, stackSize);
    pthread_t thread{};
    const int failure = pthread_create(&thread, &attributes, runThread, &start);
    pthread_attr_destroy(&attributes);
    return failure;
}

}  // namespace

void startThread(const char* name, std::function<void()> body) {
    const BlockedSignals inherited;
    auto start = std::make_unique<Start>(name, std::move(body));
    int failure = create(*start, smallStack);
    // The host's thread-local variables lie on the stack too and may not leave enough room.
    if (failure == EINVAL) failure = create(*start, 0);
    if (failure != 0) throw std::system_error(failure, std::generic_category());
    static_cast<void>(start.release());
}

bool isOwnThread() noexcept { return startedHere; }

void parkThread() {
    for (;;) pause();
}

}  // namespace kivo::platform
