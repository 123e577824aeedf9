// What a public operation costs the thread that calls it: while Kivo's threads sleep, while they
// are awake, and against a bare signal to a sleeping thread.

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include "benchmarks/OutcomeLines.h"
#include "benchmarks/Workload.h"
#include "kivo/platform/Bundle.h"
#include "kivo/sdk/KivoSDK.h"

KIVO_BUNDLE_IDENTIFIER("com.example.benchmark")

namespace {

thread_local long allocations = 0;

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using namespace kivo::benchmarks;
using Clock = std::chrono::steady_clock;

constexpr int samples = 500;
constexpr std::chrono::milliseconds untilAsleep{3};
const std::string token(deviceToken);

template <typename Work>
double microseconds(const Work& work) {
    const auto begin = Clock::now();
    work();
    return std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
}

double median(std::vector<double> values) {
    std::ranges::nth_element(values, values.begin() + samples / 2);
    return values[samples / 2];
}

template <typename Sample>
double medianOf(const Sample& sample) {
    std::vector<double> values;
    for (int count = 0; count < samples; ++count) values.push_back(sample());
    return median(std::move(values));
}

/// A thread that sleeps until it is signalled, and then sleeps again.
class Sleeper {
public:
    Sleeper() {
        std::thread([this] { sleep(); }).detach();
    }

    void signal() {
        const std::lock_guard lock(mutex_);
        signalled_ = true;
        ready_.notify_one();
    }

private:
    [[noreturn]] void sleep() {
        std::unique_lock lock(mutex_);
        for (;; signalled_ = false) ready_.wait(lock, [this] { return signalled_; });
    }

    std::mutex mutex_;
    std::condition_variable ready_;
    bool signalled_ = false;
};

}  // namespace

int main() {
    const auto plugin = kivo::KivoSDK::initialise({.apiKey = "benchmark"});
    OutcomeLines::await();
    plugin->setUser("40", "711234567", "ana@example.com", "Ana");
    OutcomeLines::await();

    Sleeper& sleeper = *new Sleeper;
    const auto operate = [&] { plugin->updateDeviceToken(token); };
    const double signal = medianOf([&] {
        std::this_thread::sleep_for(untilAsleep);
        return microseconds([&] { sleeper.signal(); });
    });
    std::vector<double> allocated;
    const double asleep = medianOf([&] {
        std::this_thread::sleep_for(untilAsleep);
        const long before = allocations;
        const double cost = microseconds(operate);
        allocated.push_back(static_cast<double>(allocations - before));
        OutcomeLines::await();
        return cost;
    });
    const double awake = medianOf([&] { return microseconds(operate); });
    OutcomeLines::await(samples);
    std::fprintf(stderr,
                 R"({"signal_us": %.2f, "asleep_us": %.2f, "awake_us": %.2f, "allocations": %.0f})"
                 "\n",
                 signal, asleep, awake, median(std::move(allocated)));
}
