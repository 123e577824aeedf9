#include "kivo/platform/http/NetworkThread.h"

#include <utility>

#include "kivo/platform/http/NetworkLoop.h"

namespace kivo::platform {

NetworkThread::NetworkThread() : loop_(NetworkLoop::begin()) {}

NetworkThread& NetworkThread::shared() {
    static NetworkThread& thread = *new NetworkThread;
    return thread;
}

void NetworkThread::start(std::shared_ptr<HTTPTransfer> transfer) {
    loop_.hand(true, std::move(transfer));
}

void NetworkThread::cancel(std::shared_ptr<HTTPTransfer> transfer) {
    loop_.hand(false, std::move(transfer));
}

TimerQueue::Timer NetworkThread::schedule(TimerQueue::Clock::time_point deadline,
                                          TimerQueue::Job job) {
    return loop_.schedule(deadline, std::move(job));
}

void NetworkThread::unschedule(const TimerQueue::Timer& timer) {
    const TimerQueue::Job dropped = loop_.unschedule(timer);  // Destroyed here, outside every lock.
}

}  // namespace kivo::platform
