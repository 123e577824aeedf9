#include <gmock/gmock.h>

#include <deque>
#include <sstream>

#include "kivo/platform/http/Transfers.h"

namespace kivo::platform {

namespace {

using Speech = HostNotes::Speech;

struct Entry final : Transfers::Entry {
    using Transfers::Entry::Entry;
};

/// Plays steps and tells what begins. "a*3" adds three transfers to host a, in capitals such as
/// nobody reads; "c2" connects the transfer of that number, "w2" withdraws it, and it ends over one
/// connection of many ("e2") or a shared one ("m2"), by a limit ("l2") or without connecting
/// ("n2").
class Play {
public:
    std::string operator()(const std::string& steps) {
        std::istringstream words(steps);
        for (std::string word; words >> word;) step(word);
        std::string begun;
        while (auto* entry = transfers_.next()) begun += ' ' + std::to_string(numberOf(*entry));
        return begun.empty() ? "" : begun.substr(1);
    }
    unsigned generation(int number) { return at(number).generation(); }
    bool isStale(int number) { return transfers_.takeStaleAddress(at(number)); }

private:
    void step(const std::string& word) {
        const int number = std::stoi(word.substr(word.find_first_of("0123456789")));
        if (word[1] == '*') {
            for (int i = 0; i < number; ++i) {
                const bool isUnread = word[0] < 'a';
                entries_.emplace_back(std::string(1, isUnread ? char(word[0] + 32) : word[0]),
                                      isUnread);
                transfers_.add(entries_.back());
            }
            return;
        }
        switch (word[0]) {
            case 'c': return transfers_.connected(at(number));
            case 'w': return static_cast<void>(transfers_.withdraw(at(number)));
            case 'e': return transfers_.ended(at(number), {.speech = Speech::separate});
            case 'm': return transfers_.ended(at(number), {.speech = Speech::multiplexed});
            case 'l': return transfers_.ended(at(number), {.connectionIsSuspect = true});
            default: return transfers_.ended(at(number), {.hasNotConnected = true});
        }
    }
    Entry& at(int number) { return entries_.at(static_cast<std::size_t>(number - 1)); }
    int numberOf(const Transfers::Entry& entry) {
        int number = 1;
        while (&at(number) != &entry) ++number;
        return number;
    }

    std::deque<Entry> entries_;
    Transfers transfers_;
};

TEST(TransfersTest, EachStepBeginsWhomThereIsAPlaceFor) {
    using Steps = std::vector<std::pair<std::string, std::string>>;
    const std::vector<Steps> plays = {
        // An unknown host is asked by one, then by six; one that speaks HTTP/1.1 by six at once.
        {{"a*9", "1"},
         {"c1", "2 3 4 5 6"},
         {"c1 c9", ""},
         {"e1 e2", "7 8"},
         {"e3 e4 e5 e6 e7 e8", "9"},
         {"e9 a*7", "10 11 12 13 14 15"}},
        // One that multiplexes is always asked by one ahead, then by 24.
        {{"a*1", "1"},
         {"m1 a*30", "2"},
         {"c2", "3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24 25"}},
        // Whoever goes ahead and fails lets the next one try; hosts do not wait for each other.
        {{"a*3 b*1", "1 4"}, {"n1", "2"}, {"l2", "3"}},
        // One that is withdrawn never begins, and gives its place away if it had one.
        {{"a*2", "1"}, {"w2 c1", ""}, {"a*1 b*2 w4", "3 5"}},
        // Those that nobody reads have two places of six, and go behind.
        {{"a*1", "1"},
         {"e1 A*4 a*3", "2 3 6 7 8"},
         {"a*2", "9"},
         {"e2", "10"},
         {"e6 e7", "4"},
         {"e3", "5"}},
        // Sixteen of them run over all hosts.
        {{"A*1 B*1 C*1 D*1 E*1 F*1 G*1 H*1 I*1 J*1 K*1 L*1 M*1 N*1 O*1 P*1 Q*1 R*1",
          "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16"},
         {"w17 n1", "18"},
         {"q*1", "19"}}};
    for (const auto& steps : plays) {
        Play play;
        for (const auto& [done, begun] : steps) EXPECT_EQ(play(done), begun) << done;
    }
}

TEST(TransfersTest, AConnectionThatALimitEndedAndADeadAddressAreLeftBehind) {
    Play play;
    EXPECT_EQ(play("a*1"), "1");
    EXPECT_EQ(play("c1 a*2"), "2 3");
    EXPECT_EQ(play("l1 l2 a*1"), "4");
    EXPECT_EQ(play.generation(3), 0U);
    EXPECT_EQ(play.generation(4), 1U) << "two on one connection end it once";
    play("n4");
    EXPECT_TRUE(play.isStale(3));
    EXPECT_FALSE(play.isStale(3)) << "looked up again, once";
}

}  // namespace

}  // namespace kivo::platform
