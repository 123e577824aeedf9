#include "kivo/platform/TaskPool.h"

#include <gmock/gmock.h>
#include <signal.h>

#include <array>
#include <atomic>
#include <fstream>
#include <latch>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>

#include "kivo/platform/OperationQueue.h"
#include "kivo/platform/TaskPool+Scopes.h"
#include "tests/platform/Load.h"

namespace kivo::tests {

namespace {

using namespace platform;
using testing::ElementsAre;
using testing::IsEmpty;

void failJob() { throw std::runtime_error("dropped"); }

TEST(TaskPoolTest, WhatIsSubmittedAfterABarrierFindsItAppliedAndBarriersKeepTheirOrder) {
    constexpr int producers = 4;
    constexpr int rounds = 2500;
    std::array<std::array<bool, rounds>, producers> applied{};  // Plain: the pool must order it.
    std::array<int, producers> next{};
    bool inBarrier = false;
    std::atomic<int> early = 0;
    int unordered = 0;
    int overlapping = 0;
    onThreads(producers, [&](int producer) {
        const auto own = static_cast<std::size_t>(producer);
        for (int round = 0; round < rounds; ++round) {
            bool& mark = applied[own][static_cast<std::size_t>(round)];
            pool().submitBarrier([&, own, round] {
                overlapping += std::exchange(inBarrier, true);
                unordered += next[own]++ != round;
                mark = true;
                inBarrier = false;
            });
            pool().submit([&] { early += !mark; });
        }
    });
    settle();
    EXPECT_EQ(early, 0);
    EXPECT_EQ(unordered, 0);
    EXPECT_EQ(overlapping, 0);
    EXPECT_THAT(next, testing::Each(rounds));
}

TEST(TaskPoolTest, NothingBeginsWhileABarrierRuns) {
    Signal running{0};
    Signal goOn{0};
    std::atomic<bool> begun = false;
    pool().submitBarrier([&] {
        running.release();
        goOn.acquire();
        EXPECT_FALSE(begun);
    });
    running.acquire();
    pool().submit([&] { begun = true; });
    pool().submitCommit([&] { begun = true; });
    EXPECT_FALSE(pool().waitUntilIdle(std::chrono::milliseconds(50)));
    goOn.release();
    settle();
    EXPECT_TRUE(begun);
}

TEST(TaskPoolTest, AHandoverKeepsWhatItsThreadSubmitsUntilTheOutermostEnds) {
    std::vector<int> order;
    {
        const TaskPool::Handover outer;
        {
            const TaskPool::Handover inner;
            pool().submitBarrier([&] { order.push_back(1); });
        }
        pool().submitBarrier([&] { order.push_back(2); });
        std::thread(passABarrier).join();
        EXPECT_THAT(order, IsEmpty());
    }
    passABarrier();
    EXPECT_THAT(order, ElementsAre(1, 2));
}

TEST(TaskPoolTest, AThrowingJobIsDroppedAndTheThreadsGoOn) {
    for (int round = 0; round < 10; ++round) {
        pool().submit(failJob);
        pool().submitBarrier(failJob);
        pool().submitCommit(failJob);
    }
    settle();
    passABarrier();
}

TEST(TaskPoolTest, ItsThreadsAreTwoNamedAndDeafToTheHostsSignals) {
    const auto blocked = [] {
        sigset_t set;
        pthread_sigmask(SIG_SETMASK, nullptr, &set);
        std::set<int> numbers;
        for (int number = 1; number <= SIGRTMAX; ++number)
            if (sigismember(&set, number) == 1) numbers.insert(number);
        return numbers;
    };
    const auto name = [] {
        std::string text;
        std::getline(std::ifstream("/proc/thread-self/comm"), text);
        return text;
    };
    std::set<int> everySignal;
    for (int number = 1; number <= SIGRTMAX; ++number)
        if (number < 32 || number >= SIGRTMIN) everySignal.insert(number);
    for (const int open :
         {SIGKILL, SIGSTOP, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS, SIGPROF})
        everySignal.erase(open);

    const auto before = blocked();
    std::latch both{2};
    std::mutex mutex;
    std::set<std::string> names;
    std::atomic<int> deaf = 0;
    for (int job = 0; job < 2; ++job) {
        pool().submit([&] {
            both.arrive_and_wait();
            deaf += blocked() == everySignal;
            const std::lock_guard lock(mutex);
            names.insert(name());
        });
    }
    settle();
    EXPECT_EQ(deaf, 2);
    EXPECT_THAT(names, ElementsAre("kivo-pool-1", "kivo-pool-2"));
    EXPECT_EQ(blocked(), before) << "the caller's own mask";
}

/// One unfinished piece of work of some kind, and how to finish it.
struct Unfinished {
    const char* kind;
    std::function<std::function<void()>()> begin;
};

std::function<void()> beginTask() {
    return [activity = std::make_shared<TaskPool::Activity>()]() mutable { activity.reset(); };
}

std::function<void()> beginCommit() {
    const auto goOn = std::make_shared<Signal>(0);
    pool().submitCommit([goOn] { goOn->acquire(); });
    return [goOn] { goOn->release(); };
}

struct SilentProtocol final : URLProtocol {
    using URLProtocol::URLProtocol;
    static bool canInit(const URLRequest&) { return true; }
    static URLRequest canonicalRequest(const URLRequest& request) { return request; }
    void startLoading() override {}
    void stopLoading() override {}
};

std::function<void()> beginLoad() {
    const URLSession session({.protocolClasses = {protocolClass<SilentProtocol>()}});
    const auto load = std::make_shared<Load>(session, requestFor("any:thing"));
    load->resume();
    return [load] { load->cancel(); };
}

TEST(TaskPoolTest, WaitUntilIdleWaitsForTasksLoadsAndCommits) {
    for (const auto& [kind, begin] : {Unfinished{"task", beginTask}, Unfinished{"load", beginLoad},
                                      Unfinished{"commit", beginCommit}}) {
        const auto finish = begin();
        EXPECT_FALSE(pool().waitUntilIdle(std::chrono::milliseconds(50))) << kind;
        finish();
        EXPECT_TRUE(pool().waitUntilIdle(patience)) << kind;
    }
}

TEST(OperationQueueTest, AnOperationWaitsForTheOneBeforeItThoughAThreadIsFree) {
    Signal running{0};
    Signal goOn{0};
    Signal passed{0};
    std::atomic<bool> second = false;
    const auto queue = std::make_shared<OperationQueue>();
    queue->addOperation([&] {
        running.release();
        goOn.acquire();
    });
    running.acquire();
    queue->addOperation([&] { second = true; });
    pool().submit([&] { passed.release(); });  // The free thread takes it up after all before it.
    passed.acquire();
    EXPECT_FALSE(second);
    goOn.release();
    settle();
    EXPECT_TRUE(second);
}

TEST(OperationQueueTest, OperationsRunOneAtATimeInTheirOrderEvenAfterOneThrew) {
    constexpr int producers = 8;
    constexpr int rounds = 500;
    const auto queue = std::make_shared<OperationQueue>();
    std::array<int, producers> next{};  // Plain, as is the flag: the queue must order them.
    bool inOperation = false;
    int unordered = 0;
    int overlapping = 0;
    onThreads(producers, [&](int producer) {
        for (int round = 0; round < rounds; ++round) {
            queue->addOperation([&, own = static_cast<std::size_t>(producer), round] {
                overlapping += std::exchange(inOperation, true);
                unordered += next[own]++ != round;
                inOperation = false;
                if (round % 10 == 0) failJob();
            });
        }
    });
    settle();
    EXPECT_THAT(next, testing::Each(rounds));
    EXPECT_EQ(unordered, 0);
    EXPECT_EQ(overlapping, 0);
}

}  // namespace

}  // namespace kivo::tests
