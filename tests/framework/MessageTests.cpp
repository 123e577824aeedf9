#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class MessageTest : public FrameworkTest {
protected:
    void receive(std::any image) {
        plugin().onMessageReceived({{"notification", {{"image", std::move(image)}}}});
    }

    std::string image(const char* name, const Reply& reply) {
        backend().answer(name, reply);
        return backend().url(name);
    }
};

TEST_F(MessageTest, HitsTheImageWithNothingOfTheFrameworks) {
    receive(image("a.png", Reply{.body = "bytes"}));
    output().awaitLine("Successfully hit");
    const auto hit = backend().last("a.png");
    EXPECT_EQ(hit.method, "GET");
    for (const char* name : {"Authorization", "x-session-id", "x-platform", "x-package-name",
                             "x-unique-device-id", "x-sdk-version", "Content-Type"})
        EXPECT_THAT(hit.values(name), IsEmpty()) << name;
    EXPECT_THAT(hit.values("User-Agent"), ElementsAre("kivo-tests"));
}

TEST_F(MessageTest, TakesEveryKindOfTextAndCountsTheRestAsMissing) {
    std::string text = image("a.png", {});
    receive(std::string_view(text));
    receive(static_cast<const char*>(text.c_str()));
    receive(text.data());
    output().awaitLines("Successfully hit the image URL: " + text, 3);

    receive(42);
    receive(static_cast<const char*>(nullptr));
    receive(static_cast<char*>(nullptr));
    receive(RemoteMessage());
    receive({});
    plugin().onMessageReceived({{"notification", {}}});
    plugin().onMessageReceived({});
    EXPECT_THAT(output().lines("Failed to retrieve image URL"), SizeIs(7));
    settle();
    EXPECT_THAT(backend().requests("a.png"), SizeIs(3));
}

TEST_F(MessageTest, SaysOfEachAddressWhatCameOfIt) {
    const std::string good = "Successfully hit the image URL: ", url = backend().url();
    const std::string odd = "Failed to hit the image URL, received invalid response";
    const std::string tooLargeToKeep(20U << 20U, 'x');
    const auto elsewhere = redirectReply(302, backend().plainUrl("large"));
    const std::vector<std::pair<std::string, std::string>> table = {
        {image("large", {.body = tooLargeToKeep}), good + url + "large"},
        {image("moved", elsewhere), good + url + "moved"},
        {image("201", {.status = 201}), odd},
        {image("204", {.status = 204}), odd},
        {image("401", refusedReply(401)), odd},
        {"ftp://localhost/a.png", "Error hitting image URL: unsupported URL"},
        {"https:///a.png", "Error hitting image URL: bad URL"},
        {" https://localhost/", "Invalid URL:  https://localhost/"},
        {"", "Invalid URL: "}};
    std::vector<std::string> expected;
    for (const auto& [address, line] : table) {
        receive(address);
        expected.push_back(line);
    }
    settle();
    EXPECT_THAT(output().lines(), testing::IsSupersetOf(expected));
}

}  // namespace

}  // namespace kivo::tests
