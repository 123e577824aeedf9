#include <gmock/gmock.h>

#include "kivo/platform/Task.h"
#include "kivo/platform/tasks/Continuation.h"
#include "kivo/platform/tasks/OperationQueue.h"
#include "kivo/platform/tasks/TaskPool+Scopes.h"
#include "tests/support/Background.h"

namespace kivo::tests {

namespace {

using namespace platform;
using namespace std::chrono_literals;
using Continuation = CheckedContinuation<int>;
using Start = std::function<void(const Continuation&)>;
constexpr int failed = -1;

Task<void> tell(Task<int> work, int* outcome) {
    try {
        *outcome = co_await std::move(work);
        EXPECT_TRUE(TaskPool::isPoolThread());
    } catch (...) {
        *outcome = failed;
    }
}

/// What `work` returned, or that it failed, seen when the owner of its launch is let go.
int launched(Task<int> work) {
    int told = 0, atTheEnd = 0;
    std::shared_ptr<void> owner(nullptr, [&](void*) { atTheEnd = told; });
    launch(std::move(owner), tell(std::move(work), &told));
    settle();
    return atTheEnd;
}

Task<int> suspended(Start start) {
    co_return co_await withCheckedThrowingContinuation<int>("the label", std::move(start));
}

Task<int> one() { co_return 1; }
Task<int> sum(int count, std::function<Task<int>()> next) {
    int total = 0;
    for (int round = 0; round < count; ++round) total += co_await next();
    co_return total;
}

TEST(TaskTest, AwaitingOneAfterAnotherGrowsNoStackAndRacesWithNoResumption) {
    const auto next = [] { return suspended([](const Continuation& at) { at.resume(1); }); };
    EXPECT_EQ(launched(sum(100'000, one)), 100'000);
    onThreads(4, [&](int) { EXPECT_EQ(launched(sum(5000, next)), 5000); });
}

TEST(ContinuationTest, ItResumesOnceWithAValueOrAnErrorFromAnywhere) {
    const Start elsewhere = [](const Continuation& later) {
        std::thread([later] { passBothThreads(), later.resume(2); }).detach();
    };
    EXPECT_EQ(launched(suspended(elsewhere)), 2);
    EXPECT_EQ(launched(suspended([](const Continuation&) { throw failed; })), failed);
    // A forked child that shared this process's pool would do nothing.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const Start twice = [](const Continuation& at) { at.resume(1), at.resume(2); };
    EXPECT_DEATH(launched(suspended(twice)), "the label tried to resume .* more than once");
}

TEST(TaskPoolTest, BarriersAndTheOperationsOfAQueueRunOneAtATimeInOrderAndMayThrow) {
    const auto queue = std::make_shared<OperationQueue>();
    const std::function<void(TaskPool::Job)> ways[] = {
        [](auto job) { pool().submitBarrier(job); },
        [&](auto job) { queue->addOperation(makeWork(job)); }};
    constexpr int rounds = 300;  // Each may cost its turn on a busy machine.
    for (const auto& handIn : ways) {
        int next[4] = {};  // Plain, as all here: who runs it must order it.
        bool inside = false;
        onThreads(4, [&](int producer) {
            for (int round = 0; round < rounds; ++round)
                handIn([&, &own = next[producer], round] {
                    EXPECT_FALSE(std::exchange(inside, true));
                    std::this_thread::yield();
                    EXPECT_EQ(own++, round);
                    inside = false;
                    throw std::runtime_error("dropped");
                });
        });
        settle();
        EXPECT_THAT(next, testing::Each(rounds));
    }
}

TEST(TaskPoolTest, NothingOvertakesABarrierAndIdleMeansThatNoCommitIsLeft) {
    Signal running{0}, goOn{0};
    int barriers = 0;
    const auto block = [&] { running.release(), goOn.acquire(); };
    pool().submitBarrier(block);
    running.acquire();
    pool().submitBarrier([&] { ++barriers; });
    pool().submit([&] { EXPECT_EQ(barriers, 1); });
    pool().submitCommit(block);
    EXPECT_FALSE(running.try_acquire_for(50ms));
    goOn.release();
    running.acquire();
    passABarrier();
    EXPECT_FALSE(pool().waitUntilIdle(50ms));
    goOn.release();
    settle();
}

TEST(TaskPoolTest, AHandoverKeepsWhatItsThreadSubmitsUntilTheOutermostEnds) {
    bool early = true;
    int late = 0;
    const auto submit = [&] {
        const TaskPool::Handover handover;
        pool().submitBarrier([&] { late += !early; });
    };
    {
        const TaskPool::Handover outer;
        submit();
        std::thread(passABarrier).join();
        early = false;
    }
    settle();
    EXPECT_EQ(late, 1);
}

}  // namespace

}  // namespace kivo::tests
