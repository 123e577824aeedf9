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

    std::string image(const char* name, Reply reply) {
        backend().answer(name, std::move(reply));
        return backend().url(name);
    }
};

TEST_F(MessageTest, HitsTheImageOnceWithNothingOfTheFrameworks) {
    const auto address = image("a.png", Reply{.body = "bytes"});
    receive(address);
    EXPECT_EQ(output().awaitLine("Successfully hit"), "Successfully hit the image URL: " + address);

    const auto hit = backend().last("a.png");
    EXPECT_EQ(hit.method, "GET");
    for (const char* name : {"Authorization", "x-session-id", "x-platform", "x-package-name",
                             "x-unique-device-id", "x-sdk-version", "Content-Type"})
        EXPECT_THAT(hit.values(name), IsEmpty()) << name;
    EXPECT_THAT(hit.values("User-Agent"), ElementsAre("kivo-tests"));
    receive(address);
    output().awaitLines("Successfully hit", 2);
    EXPECT_THAT(backend().requests("a.png"), SizeIs(2));
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

TEST_F(MessageTest, PrintsAddressesThatDoNotParse) {
    receive(std::string());
    receive(std::string(" https://localhost/"));
    EXPECT_THAT(output().lines("Invalid URL: "),
                ElementsAre("Invalid URL: ", "Invalid URL:  https://localhost/"));
}

TEST_F(MessageTest, OnlyA200Counts) {
    for (const int status : {201, 204, 401, 404, 500})
        receive(image("odd.png", Reply{.status = status}));
    output().awaitLines("Failed to hit the image URL, received invalid response", 5);
    const auto redirect = image("moved.png", redirectReply(302, backend().plainUrl("there.png")));
    backend().answer("there.png", Reply{});
    receive(redirect);
    EXPECT_EQ(output().awaitLine("Successfully"), "Successfully hit the image URL: " + redirect);
}

TEST_F(MessageTest, TransportErrorsPrintTheirLocalizedText) {
    receive(image("cut.png", cutInHalf(Reply{.body = "bytes"})));
    EXPECT_EQ(output().awaitLine("Error"),
              "Error hitting image URL: The network connection was lost.");
    receive(std::string("ftp://localhost/a.png"));
    output().awaitLine("Error hitting image URL: unsupported URL");
    receive(std::string("https:///a.png"));
    output().awaitLine("Error hitting image URL: bad URL");
}

TEST_F(MessageTest, ABodyOfAnySizeIsThrownAwayAsItComes) {
    const std::string beyondAnyLimit(20U << 20U, 'x');
    receive(image("large.png", Reply{.body = beyondAnyLimit}));
    output().awaitLine("Successfully hit the image URL: ");
}

}  // namespace

}  // namespace kivo::tests
