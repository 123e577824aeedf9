#include "kivo/platform/Keychain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/StateFiles.h"
#include "tests/support/TemporaryDirectory.h"

using namespace std::string_literals;

namespace kivo::platform {
namespace {

using tests::ChildProcess;

class KeychainTest : public testing::Test {
protected:
    tests::TemporaryDirectory directory;
    const std::filesystem::path file = directory.path() / "share" / "kivo" / "keychain.db";
    Keychain keychain{file};
};

TEST_F(KeychainTest, AddsAnItemOnceAndNeverChangesIt) {
    const auto secret = "\0\xFF"s;
    EXPECT_EQ(keychain.add("service", "account", secret), Keychain::success);
    EXPECT_EQ(keychain.add("service", "account", "other"), Keychain::duplicateItem);
    EXPECT_EQ(keychain.add("service", "empty", {}), Keychain::success);
    EXPECT_EQ(keychain.copyMatching("service", "account"), secret);
    EXPECT_EQ(Keychain(file).copyMatching("service", "account"), secret);
    EXPECT_EQ(keychain.copyMatching("service", "empty"), "");
    EXPECT_EQ(keychain.copyMatching("account", "service"), std::nullopt);
}

TEST_F(KeychainTest, CreatesNothingForARead) {
    EXPECT_EQ(keychain.copyMatching("service", "account"), std::nullopt);
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST_F(KeychainTest, KeepsItsFilePrivate) {
    ChildProcess child([this](const ChildProcess&) {
        umask(0);
        EXPECT_EQ(keychain.add("service", "account", "secret"), Keychain::success);
    });
    EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(tests::modeOf(file), 0600U);
    EXPECT_EQ(tests::modeOf(file.parent_path()), 0700U);
    EXPECT_EQ(tests::modeOf(file.parent_path().parent_path()), 0700U);
}

/// Adds one item from 16 threads at once and returns how many succeeded; all others must find a
/// duplicate.
int race(const std::vector<Keychain*>& keychains) {
    constexpr int threadCount = 16;
    std::vector<Keychain::Status> statuses(threadCount);
    std::latch start(threadCount);
    {
        std::deque<std::jthread> threads;
        for (std::size_t index = 0; index < threadCount; ++index)
            threads.emplace_back([&, index] {
                start.arrive_and_wait();
                statuses[index] =
                    keychains[index % keychains.size()]->add("s", "a", std::to_string(index));
            });
    }
    const auto successes = std::ranges::count(statuses, Keychain::success);
    EXPECT_EQ(std::ranges::count(statuses, Keychain::duplicateItem), threadCount - successes);
    return static_cast<int>(successes);
}

TEST_F(KeychainTest, GivesSixteenThreadsOneItem) {
    EXPECT_EQ(race({&keychain}), 1);
    EXPECT_NE(keychain.copyMatching("s", "a"), std::nullopt);
}

TEST_F(KeychainTest, GivesSeveralConnectionsOneItem) {
    Keychain second(file);
    Keychain third(file);
    EXPECT_EQ(race({&keychain, &second, &third}), 1);
}

TEST_F(KeychainTest, GivesSeveralProcessesOneItem) {
    std::deque<ChildProcess> children;
    for (int count = 0; count < 6; ++count)
        children.emplace_back([this](const ChildProcess& self) {
            const auto status = keychain.add("s", "a", std::to_string(getpid()));
            EXPECT_TRUE(status == Keychain::success || status == Keychain::duplicateItem) << status;
            if (status == Keychain::success) self.signal();
        });
    int successes = 0;
    for (const auto& child : children) successes += child.awaitSignal() ? 1 : 0;
    EXPECT_EQ(successes, 1);
}

TEST_F(KeychainTest, SaysWhenItIsNotAvailable) {
    Keychain nowhere(std::nullopt);
    EXPECT_EQ(nowhere.add("s", "a", "d"), Keychain::notAvailable);
    EXPECT_EQ(nowhere.copyMatching("s", "a"), std::nullopt) << "it does not pretend in memory";
}

TEST_F(KeychainTest, SaysWhenItCannotWrite) {
    ASSERT_EQ(keychain.add("s", "a", "d"), Keychain::success);
    Keychain belowAFile(file / "keychain.db");
    EXPECT_EQ(belowAFile.add("s", "a", "d"), Keychain::ioError);
    {
        const tests::ForeignLock lock(file);
        EXPECT_EQ(keychain.add("s", "b", "d"), Keychain::ioError);
    }
    for (auto path = file.parent_path(); path != directory.path().parent_path();
         path = path.parent_path())
        chmod(path.c_str(), 0555);
    chmod(file.c_str(), 0444);
    const ChildProcess reader([this](const ChildProcess&) {
        tests::becomeOrdinaryUser();
        Keychain readOnly(file);
        EXPECT_EQ(readOnly.copyMatching("s", "a"), "d");
        EXPECT_EQ(readOnly.add("s", "c", "d"), Keychain::ioError);
    });
}

TEST_F(KeychainTest, SetsADamagedFileAside) {
    std::filesystem::create_directories(file.parent_path());
    tests::writeFile(file, tests::noDatabase());
    EXPECT_EQ(keychain.copyMatching("s", "a"), std::nullopt);
    EXPECT_EQ(keychain.add("s", "a", "d"), Keychain::success);
    EXPECT_EQ(keychain.copyMatching("s", "a"), "d");
    EXPECT_EQ(tests::readFile(file.string() + ".damaged-1"), tests::noDatabase());
}

TEST_F(KeychainTest, NoticesThatItsFileIsGone) {
    ASSERT_EQ(keychain.add("s", "a", "old"), Keychain::success);
    std::filesystem::remove(file);
    EXPECT_EQ(keychain.add("s", "a", "new"), Keychain::success);
    EXPECT_EQ(Keychain(file).copyMatching("s", "a"), "new");
}

}  // namespace
}  // namespace kivo::platform
