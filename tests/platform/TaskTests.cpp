#include <gmock/gmock.h>

#include <fstream>

#include "kivo/platform/Task.h"
#include "kivo/platform/tasks/Continuation.h"
#include "kivo/platform/tasks/Loop.h"
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
        EXPECT_TRUE(Loop::isCurrent());
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
        std::thread([later] { passTheLoop(), later.resume(2); }).detach();
    };
    EXPECT_EQ(launched(suspended(elsewhere)), 2);
    EXPECT_EQ(launched(suspended([](const Continuation&) { throw failed; })), failed);
    // A forked child that shared this process's loop would do nothing.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const Start twice = [](const Continuation& at) { at.resume(1), at.resume(2); };
    EXPECT_DEATH(launched(suspended(twice)), "the label tried to resume .* more than once");
}

TEST(LoopTest, ItRunsWhatManyThreadsHandInOneAtATimeInOrderAndWhatThrowsIsDropped) {
    for (const auto kind : {Work::Kind::step, Work::Kind::barrier, Work::Kind::commit}) {
        constexpr int rounds = 1000;
        int next[4] = {};  // Plain, as all here: who runs it must order it.
        bool inside = false;
        onThreads(4, [&](int producer) {
            for (int round = 0; round < rounds; ++round)
                loop().submit(
                    [&, &own = next[producer], round] {
                        EXPECT_FALSE(std::exchange(inside, true));
                        EXPECT_EQ(own++, round);
                        inside = false;
                        throw std::runtime_error("dropped");
                    },
                    kind);
        });
        settle();
        EXPECT_THAT(next, testing::Each(rounds));
    }
}

TEST(LoopTest, WhatIsLaunchedWaitsForPreparationsAndNobodyWaitsForCommits) {
    Signal running{0}, goOn{0}, stepped{0};
    int barriers = 0, seen = -1;
    const auto block = [&] { running.release(), goOn.acquire(); };
    const auto countBarriers = [](int& from, int& to) -> Task<void> {
        to = from;
        co_return;
    };
    loop().submit(block, Work::Kind::preparation);
    loop().submit([&] { ++barriers; }, Work::Kind::barrier);
    launch(nullptr, countBarriers(barriers, seen));
    loop().submit([&] { stepped.release(); });
    running.acquire();
    stepped.acquire();
    EXPECT_EQ(seen, -1);
    loop().submit(block, Work::Kind::commit);
    goOn.release();
    running.acquire();
    passTheLoop();
    EXPECT_EQ(seen, 1);
    EXPECT_FALSE(loop().waitUntilIdle(50ms));
    EXPECT_FALSE(loop().waitUntilIdle(std::chrono::milliseconds::min()));
    goOn.release();
    settle();
}

TEST(LoopTest, WhatWaitedForAPreparationRunsBeforeWhatCameLater) {
    std::vector<int> order;
    loop().submit([&] {
        loop().submit([] {}, Work::Kind::preparation);
        loop().submit([] {  // The helper has ended it when it gets to the commit.
            Signal committed{0};
            loop().submit([&] { committed.release(); }, Work::Kind::commit);
            committed.acquire();
        });
        for (int number = 0; number < 200; ++number)  // More than a turn runs.
            loop().submit([&, number] { order.push_back(number); }, Work::Kind::barrier);
    });
    settle();
    EXPECT_EQ(order.size(), 200U);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(LoopTest, WhatTheLoopSubmitsGoesBehindWhatWasHandedInBefore) {
    std::string order;
    Signal handedIn{0};
    loop().submit([&] {
        std::thread([&] { loop().submit([&] { order += "host "; }), handedIn.release(); }).detach();
        handedIn.acquire();
        loop().submit([&] { order += "own"; });
    });
    settle();
    EXPECT_EQ(order, "host own");
}

TEST(LoopTest, TimersAreDueInOrderUnlessTheyAreTakenOut) {
    std::string order;
    Signal over{0};
    struct Ringing {
        explicit Ringing(std::function<void()> ring) : work(makeWork(std::move(ring))) {}
        Work& work;
        Timer timer{work};
    } second([&] { order += "2", over.release(); }), first([&] { order += "1"; });
    auto taken = std::make_unique<Ringing>([&] { order += "never"; });
    loop().submit([&] {
        const auto now = Loop::Clock::now();
        loop().schedule(second.timer, now + 20ms);
        loop().schedule(taken->timer, now + 5ms);
        loop().schedule(first.timer, now + 10ms);
        EXPECT_TRUE(loop().unschedule(taken->timer));
        EXPECT_FALSE(loop().unschedule(taken->timer));
        loop().submit(taken->work);
    });
    over.acquire();
    EXPECT_EQ(order, "never12");
}

/// The calling thread's name and the signals that it blocks.
std::string self() {
    std::ifstream status("/proc/thread-self/status");
    std::string told;
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("Name:") || line.starts_with("SigBlk:")) told += line;
    return told;
}

TEST(LoopTest, TheThreadsAreTwoNamedAndDeafToTheHostsSignals) {
    const auto before = self();
    std::string threads[2];
    loop().submit([&] { threads[0] = self(); });
    loop().submit([&] { threads[1] = self(); }, Work::Kind::commit);
    settle();
    // All but ILL, TRAP, ABRT, BUS, FPE, SEGV, PROF, SYS, and what nobody can block.
    const std::string blocked = "SigBlk:\tfffffffe3bfbfa07";
    EXPECT_THAT(threads,
                testing::ElementsAre("Name:\tkivo-loop" + blocked, "Name:\tkivo-helper" + blocked));
    EXPECT_EQ(self(), before);
}

}  // namespace

}  // namespace kivo::tests
