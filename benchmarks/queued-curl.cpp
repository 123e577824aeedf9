// The yardstick: libcurl on a thread of its own, to which another thread hands every call. What a
// library with Kivo's promises cannot do without, and nothing more.

#include <mutex>
#include <semaphore>
#include <thread>
#include <utility>

#include "benchmarks/CurlHandles.h"

using namespace kivo::benchmarks;

namespace {

class QueuedCurl {
public:
    explicit QueuedCurl(const Load& load)
        : inFlight_(load.inFlight),
          handles_(load),
          slots_(load.inFlight),
          thread_([this] { loop(); }) {
        thread_.detach();
    }

    void run(int calls) {
        for (int call = 0; call < calls; ++call) {
            slots_.acquire();
            hand();
        }
        for (int slot = 0; slot < inFlight_; ++slot) slots_.acquire();
        slots_.release(inFlight_);
    }

private:
    void hand() {
        const std::lock_guard lock(mutex_);
        ++handed_;
        if (!std::exchange(wakeIsDue_, true)) curl_multi_wakeup(handles_.multi());
    }

    int taken() {
        const std::lock_guard lock(mutex_);
        wakeIsDue_ = false;
        return std::exchange(handed_, 0);
    }

    [[noreturn]] void loop() {
        for (int waiting = 0;;) {
            waiting += taken();
            for (; waiting > 0 && handles_.hasIdle(); --waiting) handles_.begin();
            if (const int ended = handles_.perform()) {
                slots_.release(ended);
                if (waiting > 0) continue;
            }
            handles_.wait();
        }
    }

    const int inFlight_;
    CurlHandles handles_;
    std::counting_semaphore<> slots_;
    std::mutex mutex_;
    int handed_ = 0;
    bool wakeIsDue_ = false;
    std::thread thread_;
};

}  // namespace

int main(int argc, char** argv) {
    const Load load(argc, argv);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    QueuedCurl& candidate = *new QueuedCurl(load);  // Its thread ends with the process.
    std::_Exit(measure(load, candidate));
}
