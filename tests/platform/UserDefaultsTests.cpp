#include "kivo/platform/UserDefaults.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <deque>
#include <string>
#include <thread>
#include <vector>

#include "kivo/platform/Bundle.h"
#include "kivo/platform/TaskPool.h"
#include "tests/platform/StateFiles.h"
#include "tests/support/Patience.h"
#include "tests/support/TemporaryDirectory.h"

using namespace std::chrono_literals;
using namespace std::string_literals;

namespace kivo::platform {
namespace {

using Changes = UserDefaults::Changes;

void commitAtOnce(const std::function<void()>& job) { job(); }

class UserDefaultsTest : public testing::Test {
protected:
    void set(UserDefaults& defaults, const std::string& key, const std::string& value) {
        defaults.update([&](Changes& changes) { changes.setString(key, value); });
    }

    /// What the next launch would read.
    std::optional<std::string> stored(const std::string& key) {
        return UserDefaults(file, commitAtOnce).string(key);
    }

    /// Writes the same number under both keys, over and over, and reports each commit.
    void writePairs(const tests::ChildProcess& self, int first) {
        UserDefaults defaults(file, commitAtOnce);
        for (int count = first;; ++count) {
            setPair(defaults, count);
            self.signal();
        }
    }

    static void setPair(UserDefaults& defaults, int number) {
        defaults.update([&](Changes& changes) {
            changes.setString("a", std::to_string(number));
            changes.setString("b", std::to_string(number));
        });
    }

    int storedNumber(const char* key) { return std::stoi(stored(key).value_or("0")); }

    tests::TemporaryDirectory directory;
    const std::filesystem::path file = directory.path() / "state" / "kivo" / "app" / "defaults.db";
};

TEST_F(UserDefaultsTest, KeepsTypedValuesForTheNextLaunch) {
    const auto bytes = "\0\xFF bytes"s;
    UserDefaults(file, commitAtOnce).update([&](Changes& changes) {
        changes.setBool("flag", true);
        changes.setBool("off", false);
        changes.setString("text", "a\0ü\xFF"s);
        changes.setString("empty", "");
        changes.setData("data", bytes);
        changes.setData("no bytes", "");
    });
    UserDefaults later(file, commitAtOnce);
    EXPECT_TRUE(later.boolean("flag"));
    EXPECT_FALSE(later.boolean("off"));
    EXPECT_EQ(later.string("text"), "a\0ü\xFF"s);
    EXPECT_EQ(later.string("empty"), "");
    EXPECT_EQ(later.data("data"), bytes);
    EXPECT_EQ(later.data("no bytes"), "");
    later.update([](Changes& changes) { changes.remove("text"); });
    EXPECT_EQ(stored("text"), std::nullopt);
    EXPECT_EQ(stored("empty"), "");
}

TEST_F(UserDefaultsTest, ReadsAbsentAndForeignTypesAsNothing) {
    UserDefaults defaults(std::nullopt, commitAtOnce);
    defaults.update([](Changes& changes) {
        changes.setBool("flag", true);
        changes.setString("text", "1");
        changes.setData("data", "1");
    });
    EXPECT_FALSE(defaults.boolean("text"));
    EXPECT_FALSE(defaults.boolean("absent"));
    EXPECT_EQ(defaults.string("flag"), std::nullopt);
    EXPECT_EQ(defaults.string("data"), std::nullopt);
    EXPECT_EQ(defaults.data("text"), std::nullopt);
}

TEST_F(UserDefaultsTest, CreatesNothingBeforeTheFirstCommit) {
    std::vector<std::function<void()>> jobs;
    UserDefaults defaults(file, [&](auto job) { jobs.push_back(std::move(job)); });
    EXPECT_EQ(defaults.string("key"), std::nullopt);
    set(defaults, "key", "value");
    EXPECT_EQ(defaults.string("key"), "value");
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
    ASSERT_EQ(jobs.size(), 1U);
    jobs.front()();
    EXPECT_EQ(stored("key"), "value");
}

TEST_F(UserDefaultsTest, SchedulesOneCommitForManyUpdates) {
    std::vector<std::function<void()>> jobs;
    UserDefaults defaults(file, [&](auto job) { jobs.push_back(std::move(job)); });
    for (int count = 0; count < 10; ++count) set(defaults, "key", std::to_string(count));
    ASSERT_EQ(jobs.size(), 1U);
    jobs.front()();
    EXPECT_EQ(stored("key"), "9");
    set(defaults, "other", "x");
    EXPECT_EQ(jobs.size(), 2U);
}

TEST_F(UserDefaultsTest, WritesOnlyWhatChanged) {
    {
        UserDefaults first(file, commitAtOnce);
        set(first, "mine", "1");
        set(first, "shared", "1");
    }
    int commits = 0;
    UserDefaults one(file, [&](const auto& job) {
        ++commits;
        job();
    });
    ASSERT_EQ(one.string("shared"), "1");
    {
        UserDefaults other(file, commitAtOnce);
        set(other, "shared", "2");
    }

    one.update([](Changes& changes) {
        changes.setString("mine", "1");
        changes.remove("absent");
    });
    EXPECT_EQ(commits, 0);
    set(one, "mine", "3");
    EXPECT_EQ(commits, 1);
    EXPECT_EQ(stored("mine"), "3");
    EXPECT_EQ(stored("shared"), "2");
    EXPECT_EQ(one.string("shared"), "1") << "another's write is seen at the next launch";
}

TEST_F(UserDefaultsTest, ShowsAnUpdateWholeOrNotAtAll) {
    UserDefaults defaults(std::nullopt, commitAtOnce);
    const std::jthread writer([&](const std::stop_token& stop) {
        for (int count = 1; !stop.stop_requested(); ++count) setPair(defaults, count);
    });
    const auto number = [&](const char* key) {
        return std::stoi(defaults.string(key).value_or("0"));
    };
    for (int reads = 0; reads < 20'000; ++reads) {
        const int first = number("a");
        EXPECT_GE(number("b"), first);
        const int second = number("b");
        EXPECT_GE(number("a"), second);
    }
}

TEST_F(UserDefaultsTest, LosesNoWriteOfConcurrentThreads) {
    {
        UserDefaults defaults(file, commitAtOnce);
        std::deque<std::jthread> threads;
        for (int thread = 0; thread < 8; ++thread)
            threads.emplace_back([&, thread] {
                for (int count = 0; count < 20; ++count)
                    set(defaults, "k" + std::to_string(thread), std::to_string(count));
            });
    }
    for (int thread = 0; thread < 8; ++thread)
        EXPECT_EQ(stored("k" + std::to_string(thread)), "19");
}

TEST_F(UserDefaultsTest, TornPairsDoNotSurviveKills) {
    for (int round = 0; round < 12; ++round) {
        const int before = storedNumber("a");
        const int acknowledged = 1 + round % 5;
        tests::ChildProcess writer(
            [&](const tests::ChildProcess& self) { writePairs(self, before + 1); });
        for (int count = 0; count < acknowledged; ++count) ASSERT_TRUE(writer.awaitSignal());
        std::this_thread::sleep_for(round * 2ms);  // Spreads the kills over the next commit.
        writer.kill();
        EXPECT_EQ(stored("a"), stored("b"));
        EXPECT_GE(storedNumber("a"), before + acknowledged);
    }
}

TEST_F(UserDefaultsTest, TheApplicationsOwnLieUnderItsIdentifier) {
    setenv("XDG_STATE_HOME", directory.path().c_str(), 1);
    Bundle::setMainIdentifier("com.example.leaf");
    UserDefaults::standard().update([](Changes& changes) { changes.setBool("flag", true); });
    ASSERT_TRUE(TaskPool::shared().waitUntilIdle(tests::patience));
    const auto own = directory.path() / "kivo" / "com.example.leaf" / "defaults.db";
    EXPECT_TRUE(UserDefaults(own, commitAtOnce).boolean("flag"));

    const tests::ChildProcess forked([&](const tests::ChildProcess&) {
        EXPECT_FALSE(UserDefaults::standard().boolean("flag"));
        UserDefaults::standard().update([](Changes& changes) { changes.setBool("flag", false); });
    });
}

}  // namespace
}  // namespace kivo::platform
