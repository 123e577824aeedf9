#include "kivo/platform/Task.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <future>
#include <stdexcept>
#include <thread>

#include "kivo/platform/Continuation.h"
#include "tests/platform/Background.h"

namespace kivo::tests {

namespace {

using namespace platform;
/// The error that travels: its address shows that it is never copied.
struct Trouble : std::runtime_error {
    Trouble() : std::runtime_error("trouble") {}
};

/// What `work` returns or throws, once it was launched.
template <typename T>
Task<void> tell(Task<T> work, std::shared_ptr<std::promise<T>> outcome) {
    try {
        T value = co_await std::move(work);
        outcome->set_value(std::move(value));
    } catch (...) {
        outcome->set_exception(std::current_exception());
    }
}

template <typename T>
T launched(Task<T> work) {
    const auto outcome = std::make_shared<std::promise<T>>();
    auto future = outcome->get_future();
    launch(nullptr, tell(std::move(work), outcome));
    if (future.wait_for(patience) != std::future_status::ready)
        throw std::logic_error("the task did not end");
    return future.get();
}

Task<int> innermost(bool fails, const std::exception** thrown) {
    try {
        if (fails) throw Trouble();
    } catch (const Trouble& trouble) {
        *thrown = &trouble;
        throw;
    }
    co_return 7;
}

Task<int> middle(bool fails, const std::exception** thrown) {
    co_return co_await innermost(fails, thrown);
}

Task<int> outermost(bool fails, const std::exception** thrown) {
    const int value = co_await middle(fails, thrown);
    co_return value * 2;
}

TEST(TaskTest, AValueAndTheVeryErrorPassThroughEveryLevel) {
    const std::exception* thrown = nullptr;
    EXPECT_EQ(launched(outermost(false, &thrown)), 14);
    try {
        launched(outermost(true, &thrown));
        ADD_FAILURE() << "nothing was thrown";
    } catch (const Trouble& caught) {
        EXPECT_EQ(&caught, thrown);
    }
}

Task<int> sumOfAwaited(int count) {
    int sum = 0;
    const std::exception* none = nullptr;
    for (int round = 0; round < count; ++round) sum += co_await innermost(false, &none);
    co_return sum;
}

TEST(TaskTest, AwaitingOneTaskAfterAnotherDoesNotGrowTheStack) {
    EXPECT_EQ(launched(sumOfAwaited(100'000)), 700'000);
}

TEST(TaskTest, ATaskThatIsNeverAwaitedDoesNothing) {
    const std::exception* thrown = nullptr;
    {
        const auto dropped = outermost(true, &thrown);
    }
    EXPECT_EQ(thrown, nullptr);
}

using Continuation = CheckedContinuation<int>;
using Start = std::function<void(const Continuation&)>;

Task<int> suspended(Start start) {
    co_return co_await withCheckedThrowingContinuation<int>("the label", std::move(start));
}

Task<void> ignoring(Task<int> work) { co_await std::move(work); }

std::exception_ptr trouble() { return std::make_exception_ptr(Trouble()); }

TEST(ContinuationTest, ItResumesWithAValueOrAnErrorFromAnywhere) {
    EXPECT_EQ(launched(suspended([](const Continuation& at) { at.resume(1); })), 1);
    EXPECT_EQ(launched(suspended([](const Continuation& later) {
                  std::thread([later] { later.resume(2); }).detach();
              })),
              2);
    EXPECT_THROW(launched(suspended([](const Continuation& at) { at.resume(trouble()); })),
                 Trouble);
    EXPECT_THROW(launched(suspended([](const Continuation&) { throw Trouble(); })), Trouble);
}

Task<int> suspendedOften(Start start) {
    int sum = 0;
    for (int round = 0; round < 5000; ++round) sum += co_await suspended(start);
    co_return sum;
}

TEST(ContinuationTest, ResumingInsideStartRacesWithTheSuspensionAndIsSafe) {
    onThreads(4, [](int) {
        EXPECT_EQ(launched(suspendedOften([](const Continuation& at) { at.resume(1); })), 5000);
    });
}

TEST(ContinuationTest, MisuseIsToldUnderItsLabel) {
    // A forked child that shared this process's pool would do nothing.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto resumeTwice = [](const Continuation& at) {
        at.resume(1);
        at.resume(2);
    };
    EXPECT_DEATH(launched(suspended(resumeTwice)), "the label tried to resume .* more than once");
    const auto forget = [] {
        launch(nullptr, ignoring(suspended([](const Continuation&) {})));
        passBothThreads();
        _exit(0);
    };
    EXPECT_EXIT(forget(), testing::ExitedWithCode(0), "the label leaked its continuation");
}

TEST(TaskTest, LaunchKeepsTheOwnerUntilTheEndAndThenLetsGo) {
    auto owner = std::make_shared<int>(1);
    const std::weak_ptr<int> observed = owner;
    std::promise<Continuation> kept;
    launch(std::move(owner),
           ignoring(suspended([&](const Continuation& at) { kept.set_value(at); })));
    const auto continuation = kept.get_future().get();
    passBothThreads();
    EXPECT_FALSE(observed.expired());
    continuation.resume(trouble());
    settle();
    EXPECT_TRUE(observed.expired());
}

}  // namespace

}  // namespace kivo::tests
