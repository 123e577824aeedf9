#include "backend/run/ChildWatch.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <utility>

#include "backend/base/SignalSet.h"
#include "backend/run/Output.h"

namespace kivo::backend {

namespace {

constexpr std::chrono::milliseconds stopGrace(50);

bool isStopped(pid_t id) {
    std::ifstream file("/proc/" + std::to_string(id) + "/stat");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const auto name = text.rfind(") ");
    return name != text.npos && text[name + 2] == 'T';
}

}  // namespace

GuardedSignals::GuardedSignals() : set_(signalSet({SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD})) {
    std::signal(SIGCHLD, SIG_DFL);  // If ignored, the exit status would be lost.
    std::signal(SIGPIPE, SIG_IGN);  // Clean-up must run even if the reader has gone.
    pthread_sigmask(SIG_BLOCK, &set_, &before_);
}

ChildWatch::ChildWatch(Options options, const GuardedSignals& signals)
    : options_(std::move(options)),
      signals_(signals.set()),
      ended_(eventfd(0, EFD_CLOEXEC), "an event") {
    sigpending(&early_);
    std::thread([this] { watch(); }).detach();
}

void ChildWatch::exitWith(int status) {
    status_ = status;
    kill(getpid(), SIGTERM);
}

void ChildWatch::watch() {
    state_ = awaitChild();
    status_ = state_.exitStatus();
    eventfd_write(ended_.number(), 1);
    while (!shouldExit_) shouldExit_ = awaitSignal().si_signo != SIGCHLD;
    std::this_thread::sleep_for(Output::exitGrace);
    options_.cleanUp();
    std::_Exit(status_);
}

ChildState ChildWatch::awaitChild() {
    for (;;) {
        forward(awaitSignal());
        const auto change = changeOf(options_.child);
        if (change && !change->hasStopped()) return *change;
        if (change) stopWithChild();
    }
}

siginfo_t ChildWatch::awaitSignal() {
    siginfo_t signal{};
    while (sigwaitinfo(&signals_, &signal) < 0) continue;
    return signal;
}

/// The terminal signals the child itself, unless the child was not there yet or has its own process
/// group.
void ChildWatch::forward(const siginfo_t& signal) {
    if (signal.si_signo == SIGCHLD) return;
    const bool insists = std::exchange(shouldExit_, true);
    const bool fromTerminal = signal.si_code > 0;
    const bool sharesGroup = getpgid(options_.child) == getpgrp();
    const bool early = sigismember(&early_, signal.si_signo) == 1;
    sigdelset(&early_, signal.si_signo);
    if (insists && options_.endsDeafChild)
        kill(options_.child, SIGKILL);
    else if (early || !fromTerminal || !sharesGroup)
        kill(options_.child, signal.si_signo);
}

/// Ctrl-Z stops both, and both go on together; by then the child no longer counts as stopped. A
/// signal to this very thread stops the process before the next line.
void ChildWatch::stopWithChild() const {
    std::this_thread::sleep_for(stopGrace);
    if (!isStopped(options_.child)) return;
    pthread_kill(pthread_self(), SIGSTOP);
    kill(options_.child, SIGCONT);
}

}  // namespace kivo::backend
