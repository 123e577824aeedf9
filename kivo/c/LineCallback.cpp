#include "kivo/c/LineCallback.h"

#include <utility>

#include "kivo/platform/Console.h"

namespace kivo::c {

namespace {

/// Calls of any callback in which this thread is.
thread_local int callsOfThisThread = 0;

}  // namespace

/// Counts a call for as long as it is under way.
class LineCallback::Call {
public:
    explicit Call(std::atomic<int>& calls) : calls_(calls) {
        ++calls_;
        ++callsOfThisThread;
    }
    ~Call() {
        --callsOfThisThread;
        if (--calls_ == 0) calls_.notify_all();
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

private:
    std::atomic<int>& calls_;
};

void LineCallback::call(std::string line) {
    const Call call(calls_);
    if (isRetired_) {
        platform::Console::print(std::move(line));
    } else {
        function_(line.c_str(), line.size(), context_);
    }
}

void LineCallback::retire() noexcept {
    isRetired_ = true;
    if (callsOfThisThread > 0) return;
    for (int calls = calls_; calls != 0; calls = calls_) calls_.wait(calls);
}

}  // namespace kivo::c
