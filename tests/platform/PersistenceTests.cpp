#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "kivo/platform/Console.h"
#include "kivo/platform/persistence/Keychain.h"
#include "kivo/platform/persistence/UserDefaults.h"
#include "kivo/platform/system/Output.h"
#include "tests/support/Background.h"
#include "tests/support/TemporaryDirectory.h"

namespace kivo::platform {

namespace {

using namespace std::literals;
using tests::ChildProcess;
using tests::contentOf;
using Path = std::filesystem::path;

const auto commitAtOnce = [](const auto& job) { job(); };
const std::string noDatabase(4096, 'x');

void overwrite(const Path& file, const std::string& content) { std::ofstream(file) << content; }

/// Defaults that have kept one value, "old", and a keychain that is not there yet.
class StateTest : public testing::Test {
protected:
    StateTest() { set(defaults, "old", "1"); }

    static void set(UserDefaults& changed, const std::string& key, const std::string& value) {
        changed.update([&](auto& changes) { changes.setString(key, value); });
    }

    /// What the next launch reads.
    UserDefaults launch() const { return {file, commitAtOnce}; }
    std::optional<std::string> stored(const char* key) const { return launch().string(key); }

    tests::TemporaryDirectory directory;
    const Path file = directory.path() / "defaults.db";
    UserDefaults defaults = launch();
    const Path keychainFile = directory.path() / "share" / "kivo" / "keychain.db";
    Keychain keychain{keychainFile};
};

TEST_F(StateTest, DefaultsWriteOnlyWhatChanged) {
    auto other = launch();
    EXPECT_EQ(other.string("old"), "1");
    defaults.update([](auto& changes) { changes.remove("old"); });
    set(other, "old", "1");
    set(other, "new", "a\0ü\xFF"s);
    EXPECT_EQ(stored("old"), std::nullopt);
    EXPECT_EQ(stored("new"), "a\0ü\xFF"s);
}

TEST_F(StateTest, AKillLosesNothingCommittedAndTearsNoPair) {
    ChildProcess writer([&] {
        auto own = launch();
        for (std::string value = "x";; ChildProcess::signal(), value += 'x')
            own.update([&](auto& changes) {
                for (const char* key : {"a", "b"}) changes.setString(key, value);
            });
    });
    writer.read(3);
    writer.end(SIGKILL);
    EXPECT_EQ(stored("a"), stored("b"));
    EXPECT_GE(stored("a").value_or("").size(), 3U);
}

TEST_F(StateTest, DefaultsSetADamagedFileAsideAndBeginAFreshOne) {
    for (int damage = 0; damage < 2; ++damage) {
        overwrite(file, noDatabase);
        EXPECT_EQ(stored("old"), std::nullopt);
    }
    EXPECT_EQ(contentOf(file.string() + ".damaged-2"), noDatabase);
    overwrite(file, noDatabase);
    set(defaults, "new", "2");
    EXPECT_EQ(stored("new"), "2") << "a commit may be the first to find it";
    EXPECT_EQ(stored("old"), "1") << "a file begun afresh gets all that memory holds";

    Database writer(file);
    writer.execute("BEGIN IMMEDIATE; UPDATE defaults SET value = 'unfinished'");
    overwrite(file, noDatabase);
    EXPECT_EQ(stored("new"), std::nullopt);
    EXPECT_TRUE(std::filesystem::exists(file.string() + ".damaged-4-journal"));
}

TEST_F(StateTest, DefaultsCommitWithTheNextChangeWhatALockHeldBack) {
    auto blind = launch();
    Database other(file);
    other.execute("BEGIN EXCLUSIVE");
    set(defaults, "held", "back");
    EXPECT_EQ(blind.string("old"), std::nullopt);
    other.execute("COMMIT");
    set(defaults, "other", "3");
    EXPECT_EQ(stored("held"), "back");
    EXPECT_EQ(stored("old"), "1");
    blind.update([](auto& changes) { changes.remove("old"); });
    EXPECT_EQ(stored("old"), std::nullopt) << "it did not know of it, and yet it was to go";
}

TEST_F(StateTest, AFileRunsNoProgram) {
    Database writer(file);
    writer.execute("CREATE TRIGGER t AFTER INSERT ON defaults BEGIN DELETE FROM defaults; END");
    set(defaults, "new", "2");
    EXPECT_EQ(stored("old"), "1");
    EXPECT_THROW(writer.prepare("SELECT abs(1)"), DatabaseError);
}

TEST_F(StateTest, DefaultsLoadTheLatestRowsOfALargeFile) {
    const std::string large(10'000, 'x');
    Database writer(file);
    auto rows = writer.prepare(
        "INSERT INTO defaults WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n LIMIT "
        "2000) SELECT 'foreign' || i, ? FROM n");
    rows.bindText(1, large);
    rows.run();
    EXPECT_EQ(stored("foreign2000"), large);
    EXPECT_EQ(stored("old"), std::nullopt);
    set(defaults, "old", std::string(17 << 20, 'x'));
    set(defaults, "new", "2");
    EXPECT_EQ(stored("new"), "2") << "a value that is too large holds back no other";
}

TEST_F(StateTest, AFileIsPrivateAndAMissingPermissionIsSaidOnce) {
    std::vector<std::string> lines;
    Console::setOutput([&](std::string_view line) { lines.emplace_back(line); });
    permissions(file, std::filesystem::perms(0666));
    EXPECT_EQ(stored("old"), "1");
    EXPECT_EQ(status(file).permissions(), std::filesystem::perms(0600));
    permissions(file, std::filesystem::perms::none);
    permissions(directory.path(), std::filesystem::perms(0755));
    const bool isRoot = seteuid(65534) == 0;  // The superuser lacks no permission.
    auto later = launch();
    for (const char* value : {"1", "2"}) set(later, "new", value);
    EXPECT_EQ(isRoot ? seteuid(0) : 0, 0);
    Output::shared().drainSink(Output::Clock::now() + tests::patience);
    Console::setOutput({});
    EXPECT_THAT(lines, testing::ElementsAre(testing::HasSubstr(file)));
}

TEST_F(StateTest, AKeychainSaysWhenItCannotKeepAnItem) {
    EXPECT_FALSE(keychain.copyMatching("s", "a") || exists(keychainFile));
    EXPECT_EQ(Keychain(std::nullopt).add("s", "a", "d"), Keychain::notAvailable);
    umask(0);
    EXPECT_EQ(keychain.add("s", "a", "old"), Keychain::success);
    EXPECT_EQ(status(keychainFile).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(status(keychainFile.parent_path()).permissions(), std::filesystem::perms(0700));
    EXPECT_EQ(Keychain(keychainFile / "below").add("s", "a", "d"), Keychain::ioError);
    overwrite(keychainFile, noDatabase);
    EXPECT_EQ(keychain.add("s", "a", "new"), Keychain::success);
    EXPECT_EQ(contentOf(keychainFile.string() + ".damaged-1"), noDatabase);
    std::filesystem::remove(keychainFile);
    EXPECT_EQ(keychain.add("s", "a", "newest"), Keychain::success);
    EXPECT_EQ(Keychain(keychainFile).copyMatching("s", "a"), "newest");
}

TEST_F(StateTest, AKeychainRemembersAnItemWhoseFileCannotBeReached) {
    EXPECT_EQ(keychain.add("s", "a", "d"), Keychain::success);
    EXPECT_EQ(keychain.copyMatching("s", "a"), "d");
    const Path folder = keychainFile.parent_path();
    rename(folder, folder.string() + "-elsewhere");
    create_symlink(folder, folder);
    EXPECT_EQ(keychain.copyMatching("s", "a"), "d");
    std::filesystem::remove(folder);
    EXPECT_EQ(keychain.copyMatching("s", "a"), std::nullopt);
}

}  // namespace

}  // namespace kivo::platform
