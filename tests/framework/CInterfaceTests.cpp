#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>

#include "kivo/kivo.h"
#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using testing::IsEmpty;
using testing::SizeIs;

using CInterfaceTest = FrameworkTest;

TEST_F(CInterfaceTest, BadInputDoesNoHarmAndAnAbsentTextIsSentAsAnEmptyOne) {
    kivo_update_device_token("before there is a plugin");
    EXPECT_FALSE(kivo_initialise(nullptr, false));
    EXPECT_TRUE(kivo_initialise("key", false));
    output().awaitLine("SDK Initialized successfully: ");
    EXPECT_TRUE(kivo_initialise("other", true));
    kivo_set_user(nullptr, nullptr, "ana\xff", nullptr);
    EXPECT_TRUE(kivo_wait_until_idle(60'000));
    EXPECT_EQ(backend().last("user/authenticate").body,
              R"({"countryCode":"","email":"ana�","name":"","phone":""})");

    kivo_update_device_token(nullptr);
    const std::string image = backend().url() + "a.png";
    const kivo_payload_entry payload[] = {{"notification", "image", nullptr},
                                          {nullptr, "image", "x"},
                                          {"notification", "image", image.c_str()},
                                          {"notification", "image", "x"}};
    kivo_on_message_received(payload, SIZE_MAX);
    kivo_on_message_received(nullptr, 5);
    EXPECT_TRUE(kivo_wait_until_idle(60'000));
    EXPECT_THAT(output().lines("Failed to retrieve image URL"), SizeIs(1));
    kivo_on_message_received(payload, std::size(payload));
    EXPECT_TRUE(kivo_wait_until_idle(60'000));
    EXPECT_THAT(output().lines("Successfully hit the image URL: " + image), SizeIs(1));
    EXPECT_THAT(backend().requests("update-device-token"), IsEmpty());
}

/// A callback that stays in its first call until it is let go.
struct Held {
    Signal entered{0}, release{0};
    std::atomic<bool> hasReturned{false};
    static void take(const char*, std::size_t, void* context) {
        auto& held = *static_cast<Held*>(context);
        held.entered.release();
        held.release.acquire();
        held.hasReturned = true;
    }
};

TEST_F(CInterfaceTest, RemovingACallbackWaitsForItsCallsUnlessItRemovesItself) {
    Held held;
    kivo_set_output_callback(Held::take, &held);
    std::thread printer([] { platform::Console::print("line"); });
    held.entered.acquire();
    std::thread remover([&] {
        kivo_set_output_descriptor(-1);
        EXPECT_TRUE(held.hasReturned);
    });
    held.release.release();
    remover.join();
    printer.join();

    Lines lines;
    kivo_set_output_callback(
        [](const char* line, std::size_t, void* context) {
            static_cast<Lines*>(context)->add(line);
            kivo_set_output_callback(nullptr, nullptr);
        },
        &lines);
    std::thread([] { platform::Console::print("once"); }).join();
    lines.awaitLine("once");
}

TEST_F(CInterfaceTest, ADescriptorTakesWholeLinesUntilItsReaderIsGone) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    kivo_set_output_descriptor(ends[1]);
    kivo_set_output_descriptor(12345);  // No such descriptor: the pipe stays.
    close(ends[1]);
    const std::string longLine(300'000, 'x');
    std::thread printer([&] {
        platform::Console::print(longLine);
        platform::Console::print("end");
    });
    std::string text;
    for (char buffer[4096]; !text.ends_with("\nend\n");) {
        const auto size = read(ends[0], buffer, sizeof buffer);
        if (size > 0) text.append(buffer, static_cast<std::size_t>(size));
    }
    printer.join();
    EXPECT_EQ(text, longLine + "\nend\n");
    close(ends[0]);
    platform::Console::print("to nobody");

    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    kivo_set_output_descriptor(ends[1]);
    platform::Console::print("to another");
    char buffer[64];
    EXPECT_EQ(read(ends[0], buffer, sizeof buffer), 11);

    // The host closes Kivo's duplicate, and opens a file that takes its number.
    const int number = fcntl(ends[1], F_DUPFD, STDERR_FILENO + 1);
    close(number);
    kivo_set_output_descriptor(ends[1]);
    FILE* const file = std::tmpfile();
    dup2(fileno(file), number);
    platform::Console::print("lost");
    kivo_set_output_descriptor(ends[1]);
    platform::Console::print("kept");
    EXPECT_EQ(read(ends[0], buffer, sizeof buffer), 5);
    struct stat found{};
    EXPECT_EQ(fstat(number, &found), 0);
    EXPECT_EQ(found.st_size, 0);
}

}  // namespace

}  // namespace kivo::tests
