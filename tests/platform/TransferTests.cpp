#include <gtest/gtest.h>

#include "kivo/platform/http/ConnectionGenerations.h"
#include "kivo/platform/http/TimerQueue.h"
#include "kivo/platform/http/TransferQueue.h"

namespace kivo::platform {

namespace {

std::shared_ptr<HTTPTransfer> transferTo(std::string_view url) {
    return std::make_shared<HTTPTransfer>(URLRequest(*URL::parse(url)), nullptr);
}

TEST(TransferQueue, RunsSixToAHostAnd24OnceItMultiplexes) {
    enum Connection { separate, multiplexed };
    TransferQueue queue;
    std::size_t running = 0;
    for (int i = 0; i < 60; ++i) running += queue.admit(transferTo("https://host/")) ? 1 : 0;
    EXPECT_EQ(running, 1U) << "the first connects alone";
    EXPECT_TRUE(queue.admit(transferTo("https://other/")));
    const std::tuple<const char*, Connection, std::size_t> table[] = {
        {"the first", separate, 6},
        {"one of six", separate, 6},
        {"the first that multiplexes", multiplexed, 24},
        {"one of 24", multiplexed, 24},
        {"one more than six need", separate, 23},
        {"another such", separate, 22},
        {"one that multiplexes again", multiplexed, 24}};
    for (const auto& [transfer, connection, expected] : table) {
        running += queue.ended("host:443", connection == multiplexed).size();
        EXPECT_EQ(--running, expected) << transfer;
    }
}

TEST(TransferQueue, StartsTheLongestWaitingFirstAndNoneThatWasWithdrawn) {
    TransferQueue queue;
    const auto first = transferTo("https://host/"), withdrawn = transferTo("https://host/"),
               second = transferTo("https://host/"), third = transferTo("https://host/");
    for (const auto& transfer : {first, withdrawn, second, third}) queue.admit(transfer);
    EXPECT_TRUE(queue.withdraw(withdrawn));
    for (const auto& gone : {withdrawn, first}) EXPECT_FALSE(queue.withdraw(gone));
    EXPECT_TRUE(queue.connected().empty());
    EXPECT_EQ(queue.ended("host:443", false), (TransferQueue::Transfers{second, third}));
}

TEST(TimerQueue, HandsOverWhatIsDueEarliestFirst) {
    const auto second = [](int number) {
        return TimerQueue::Clock::time_point(std::chrono::seconds(number));
    };
    TimerQueue timers;
    std::string ran;
    std::vector<TimerQueue::Timer> added;
    for (const auto& [deadline, name] : {std::pair(3, 'd'), {1, 'a'}, {2, 'c'}, {1, 'b'}})
        added.push_back(timers.add(second(deadline), [&ran, name] { ran += name; }));
    EXPECT_TRUE(timers.remove(added[2]));
    EXPECT_FALSE(timers.remove(added[2])) << "has gone";

    for (const auto& [now, expected] : {std::pair(0, ""), {1, "ab"}, {2, "ab"}, {4, "abd"}}) {
        TimerQueue::Jobs due;
        timers.takeDue(second(now), due);
        for (const auto& [timer, job] : due) (*job)();
        EXPECT_EQ(ran, expected) << now;
        EXPECT_EQ(timers.earliest().has_value(), now < 4);
    }
}

TEST(ConnectionGenerations, EndOncePerHostHoweverManyTransfersEndThem) {
    ConnectionGenerations generations;
    for (int transfer = 0; transfer < 3; ++transfer) generations.renew("host:443", 0);
    EXPECT_EQ(generations.of("host:443"), 1U);
    unsigned others = 0;
    for (char name = 'a'; name <= 'z'; ++name) others += generations.of({&name, 1});
    EXPECT_LT(others, 5U) << "few share its count";
    generations.renew("host:443", 1);
    EXPECT_EQ(generations.of("host:443"), 2U);
}

}  // namespace

}  // namespace kivo::platform
