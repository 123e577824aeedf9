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

constexpr std::chrono::milliseconds patienceAtTheEnd(150);

}  // namespace

GuardedSignals::GuardedSignals() {
    sigemptyset(&set_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD}) sigaddset(&set_, signal);
    std::signal(SIGCHLD, SIG_DFL);  // Ignored, it would take the exit status with it.
    std::signal(SIGPIPE, SIG_IGN);  // A reader who leaves must not cost the tidying up.
    pthread_sigmask(SIG_BLOCK, &set_, &before_);
}

ChildWatch::ChildWatch(pid_t child, const GuardedSignals& signals, std::function<void()> lastAct)
    : child_(child),
      signals_(signals.set()),
      lastAct_(std::move(lastAct)),
      ended_(eventfd(0, EFD_CLOEXEC), "an event") {
    sigpending(&early_);
    std::thread([this] { watch(); }).detach();
}

void ChildWatch::endWith(int status) {
    status_ = status;
    kill(getpid(), SIGTERM);
}

void ChildWatch::watch() {
    status_ = awaitChild();
    eventfd_write(ended_.number(), 1);
    while (!askedToEnd_) awaitSignal();
    std::this_thread::sleep_for(patienceAtTheEnd);
    lastAct_();
    std::_Exit(status_);
}

int ChildWatch::awaitChild() {
    for (;;) {
        handOn(awaitSignal());
        if (const auto status = reap(child_)) return *status;
    }
}

siginfo_t ChildWatch::awaitSignal() {
    siginfo_t signal{};
    while (sigwaitinfo(&signals_, &signal) < 0) continue;
    askedToEnd_ = askedToEnd_ || signal.si_signo != SIGCHLD;
    return signal;
}

/// What the terminal sends, the child gets as well, if it is there already and has not begun a
/// group of its own.
void ChildWatch::handOn(const siginfo_t& signal) {
    if (signal.si_signo == SIGCHLD) return;
    const bool fromTerminal = signal.si_code > 0;
    const bool sharesGroup = getpgid(child_) == getpgrp();
    const bool early = sigismember(&early_, signal.si_signo) == 1;
    sigdelset(&early_, signal.si_signo);
    if (early || !fromTerminal || !sharesGroup) kill(child_, signal.si_signo);
}

}  // namespace kivo::backend
