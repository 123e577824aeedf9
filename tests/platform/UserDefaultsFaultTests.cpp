#include <gtest/gtest.h>
#include <sys/resource.h>

#include <string>

#include "kivo/platform/UserDefaults.h"
#include "tests/platform/StateFiles.h"
#include "tests/support/TemporaryDirectory.h"

namespace kivo::platform {
namespace {

using tests::ChildProcess;

void commitAtOnce(const std::function<void()>& job) { job(); }

/// A store that has kept "old", and what becomes of it when its file goes wrong.
class UserDefaultsFaultTest : public testing::Test {
protected:
    UserDefaultsFaultTest() { set("old", "1"); }

    void set(const std::string& key, const std::string& value) {
        UserDefaults defaults(file, commitAtOnce);
        set(defaults, key, value);
    }

    static void set(UserDefaults& defaults, const std::string& key, const std::string& value) {
        defaults.update([&](UserDefaults::Changes& changes) { changes.setString(key, value); });
    }

    std::optional<std::string> stored(const std::string& key) {
        return UserDefaults(file, commitAtOnce).string(key);
    }

    std::filesystem::path beside(const char* suffix) const { return file.string() + suffix; }

    /// Values are still taken and given, whatever the disk does.
    static void expectToGoOnInMemory(UserDefaults& defaults) {
        set(defaults, "new", "2");
        EXPECT_EQ(defaults.string("new"), "2");
    }

    tests::TemporaryDirectory directory;
    const std::filesystem::path file = directory.path() / "defaults.db";
};

TEST_F(UserDefaultsFaultTest, SetsADamagedFileAsideAndBeginsAFreshOne) {
    const std::string damages[] = {tests::noDatabase(), tests::brokenInside(file)};
    for (int number = 1; number <= 2; ++number) {
        const auto& damage = damages[number - 1];
        tests::writeFile(file, damage);
        UserDefaults defaults(file, commitAtOnce);
        EXPECT_EQ(defaults.string("old"), std::nullopt);
        set(defaults, "new", "2");
        EXPECT_EQ(stored("new"), "2");
        EXPECT_EQ(tests::readFile(beside((".damaged-" + std::to_string(number)).c_str())), damage);
    }
}

TEST_F(UserDefaultsFaultTest, SetsTheJournalOfAnUnfinishedTransactionAsideWithItsFile) {
    {
        const tests::ForeignLock writer(file,
                                        "BEGIN IMMEDIATE; UPDATE defaults SET value = 'torn'");
        ASSERT_TRUE(std::filesystem::exists(beside("-journal")));
        tests::writeFile(file, tests::noDatabase());
        EXPECT_EQ(stored("old"), std::nullopt);
    }
    EXPECT_TRUE(std::filesystem::exists(beside(".damaged-1-journal")));
    EXPECT_FALSE(std::filesystem::exists(beside("-journal")));
    set("new", "2");
    EXPECT_EQ(stored("new"), "2");
}

TEST_F(UserDefaultsFaultTest, SetsADamageAsideThatOnlyACommitFinds) {
    UserDefaults defaults(file, commitAtOnce);
    ASSERT_EQ(defaults.string("old"), "1");
    tests::writeFile(file, tests::noDatabase());
    set(defaults, "new", "2");
    EXPECT_EQ(stored("new"), "2");
    EXPECT_TRUE(std::filesystem::exists(beside(".damaged-1")));
}

TEST_F(UserDefaultsFaultTest, LeavesATableOfAnotherShapeAlone) {
    tests::runSql(file,
                  "DROP TABLE defaults; CREATE TABLE defaults (something, entirely, different)");
    const auto before = tests::readFile(file);
    UserDefaults defaults(file, commitAtOnce);
    EXPECT_EQ(defaults.string("old"), std::nullopt);
    expectToGoOnInMemory(defaults);
    EXPECT_EQ(tests::readFile(file), before);
    EXPECT_FALSE(std::filesystem::exists(beside(".damaged-1")));
}

TEST_F(UserDefaultsFaultTest, IgnoresValuesOfTypesItDoesNotWrite) {
    tests::runSql(file,
                  "INSERT INTO defaults VALUES ('real', 1.5), ('nothing', NULL), ('many', 7)");
    UserDefaults defaults(file, commitAtOnce);
    EXPECT_EQ(defaults.string("old"), "1");
    EXPECT_FALSE(defaults.boolean("real"));
    EXPECT_EQ(defaults.string("nothing"), std::nullopt);
    EXPECT_TRUE(defaults.boolean("many"));
}

TEST_F(UserDefaultsFaultTest, CommitsWithTheNextChangeWhatALockHeldBack) {
    UserDefaults defaults(file, commitAtOnce);
    ASSERT_EQ(defaults.string("old"), "1");
    {
        const tests::ForeignLock lock(file);
        set(defaults, "held", "back");
        set(defaults, "old", "2");
        EXPECT_EQ(defaults.string("held"), "back");
    }
    EXPECT_EQ(stored("held"), std::nullopt);
    set(defaults, "old", "3");
    EXPECT_EQ(stored("held"), "back");
    EXPECT_EQ(stored("old"), "3");
}

TEST_F(UserDefaultsFaultTest, GoesOnWithoutAFileThatIsLockedAtTheStart) {
    UserDefaults defaults(file, commitAtOnce);
    {
        const tests::ForeignLock lock(file);
        EXPECT_EQ(defaults.string("old"), std::nullopt);
    }
    defaults.update([](UserDefaults::Changes& changes) { changes.remove("old"); });
    EXPECT_EQ(stored("old"), std::nullopt) << "nobody knew that it was there, and yet it was to go";
}

TEST_F(UserDefaultsFaultTest, ReadsAReadOnlyFile) {
    chmod(file.c_str(), 0444);
    chmod(directory.path().c_str(), 0555);
    const ChildProcess child([this](const ChildProcess&) {
        tests::becomeOrdinaryUser();
        UserDefaults defaults(file, commitAtOnce);
        EXPECT_EQ(defaults.string("old"), "1");
        expectToGoOnInMemory(defaults);
        EXPECT_EQ(stored("new"), std::nullopt);
    });
}

TEST_F(UserDefaultsFaultTest, GoesOnWhenTheDiskIsFull) {
    const ChildProcess child([this](const ChildProcess&) {
        signal(SIGXFSZ, SIG_IGN);
        UserDefaults defaults(file, commitAtOnce);
        const rlimit full{.rlim_cur = 1000, .rlim_max = RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &full);
        expectToGoOnInMemory(defaults);
        EXPECT_EQ(stored("new"), std::nullopt);

        const rlimit roomy{.rlim_cur = RLIM_INFINITY, .rlim_max = RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &roomy);
        set(defaults, "newer", "3");
        EXPECT_EQ(stored("new"), "2");
        EXPECT_EQ(stored("newer"), "3");
        EXPECT_EQ(stored("old"), "1");
    });
}

TEST_F(UserDefaultsFaultTest, GoesOnWhereNoFolderCanBeMade) {
    UserDefaults defaults(file / "below" / "a file", commitAtOnce);
    expectToGoOnInMemory(defaults);
    UserDefaults nowhere(std::nullopt, commitAtOnce);
    expectToGoOnInMemory(nowhere);
}

TEST_F(UserDefaultsFaultTest, KeepsItsFilesPrivateWhateverTheUmask) {
    for (const mode_t mask : {0U, 0777U}) {
        const auto base = directory.path() / std::to_string(mask);
        ChildProcess child([&](const ChildProcess&) {
            umask(mask);
            UserDefaults defaults(base / "kivo" / "defaults.db", commitAtOnce);
            set(defaults, "key", "value");
            EXPECT_EQ(umask(0), mask);
        });
        EXPECT_EQ(child.wait(), 0);
        EXPECT_EQ(tests::modeOf(base), 0700U);
        EXPECT_EQ(tests::modeOf(base / "kivo"), 0700U);
        EXPECT_EQ(tests::modeOf(base / "kivo" / "defaults.db"), 0600U);
    }
}

}  // namespace
}  // namespace kivo::platform
