#include "backend/ChildWatch.h"

#include "backend/ChildProcess.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <thread>

namespace kivo::backend {
namespace {

constexpr std::chrono::milliseconds patienceAfterTheChild(150);

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
      ended_(::eventfd(0, EFD_CLOEXEC), "an event") {
    std::thread([this] { watch(); }).detach();
}

void ChildWatch::watch() {
    std::optional<int> status;
    while (!status) {
        siginfo_t signal{};
        if (::sigwaitinfo(&signals_, &signal) > 0) handOn(signal);
        status = reap(child_);
    }
    status_ = *status;
    ::eventfd_write(ended_.number(), 1);
    std::this_thread::sleep_for(patienceAfterTheChild);
    lastAct_();
    std::_Exit(status_);
}

/// What the terminal sends, the child has got as well.
void ChildWatch::handOn(const siginfo_t& signal) const {
    const bool fromAProgram = signal.si_code <= 0;
    if (signal.si_signo != SIGCHLD && fromAProgram) ::kill(child_, signal.si_signo);
}

}  // namespace kivo::backend
