#include "backend/run/ChildWatch.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <thread>

#include "backend/run/ChildProcess.h"

namespace kivo::backend {

namespace {

constexpr std::chrono::milliseconds exitGrace(150);

}  // namespace

GuardedSignals::GuardedSignals() {
    sigemptyset(&set_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD}) sigaddset(&set_, signal);
    std::signal(SIGCHLD, SIG_DFL);  // If ignored, the exit status would be lost.
    std::signal(SIGPIPE, SIG_IGN);  // Clean-up must run even if the reader has gone.
    pthread_sigmask(SIG_BLOCK, &set_, &before_);
}

ChildWatch::ChildWatch(pid_t child, const GuardedSignals& signals, std::function<void()> cleanUp)
    : child_(child),
      signals_(signals.set()),
      cleanUp_(std::move(cleanUp)),
      ended_(eventfd(0, EFD_CLOEXEC), "an event") {
    sigpending(&early_);
    std::thread([this] { watch(); }).detach();
}

void ChildWatch::exitWith(int status) {
    status_ = status;
    kill(getpid(), SIGTERM);
}

void ChildWatch::watch() {
    status_ = awaitChild();
    eventfd_write(ended_.number(), 1);
    while (!shouldExit_) awaitSignal();
    std::this_thread::sleep_for(exitGrace);
    cleanUp_();
    std::_Exit(status_);
}

int ChildWatch::awaitChild() {
    for (;;) {
        forward(awaitSignal());
        if (const auto status = reap(child_)) return *status;
    }
}

siginfo_t ChildWatch::awaitSignal() {
    siginfo_t signal{};
    while (sigwaitinfo(&signals_, &signal) < 0) continue;
    shouldExit_ = shouldExit_ || signal.si_signo != SIGCHLD;
    return signal;
}

/// The terminal signals the child itself, unless the child was not there yet or has its own process
/// group.
void ChildWatch::forward(const siginfo_t& signal) {
    if (signal.si_signo == SIGCHLD) return;
    const bool fromTerminal = signal.si_code > 0;
    const bool sharesGroup = getpgid(child_) == getpgrp();
    const bool early = sigismember(&early_, signal.si_signo) == 1;
    sigdelset(&early_, signal.si_signo);
    if (early || !fromTerminal || !sharesGroup) kill(child_, signal.si_signo);
}

}  // namespace kivo::backend
