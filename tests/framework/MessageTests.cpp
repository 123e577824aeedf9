#include "tests/framework/FrameworkTest.h"

namespace kivo::tests {

namespace {

using namespace std::literals;
using testing::ElementsAre;
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
    EXPECT_THAT(hit.values("User-Agent"), ElementsAre("kivo-tests"));
    EXPECT_THAT(hit.headers, SizeIs(3)) << "beside that, Host and Accept";
}

TEST_F(MessageTest, SaysOfEachImageWhatCameOfIt) {
    const std::string good = "Successfully hit the image URL: ", url = backend().url();
    const std::string missing = "Failed to retrieve image URL";
    const std::string odd = "Failed to hit the image URL, received invalid response";
    const auto elsewhere = redirectReply(302, backend().plainUrl("large"));
    std::string text = image("a.png", {});
    const std::vector<std::pair<std::any, std::string>> table = {
        {image("large", {.body = std::string(20U << 20U, 'x')}), good + url + "large"},
        {image("moved", elsewhere), good + url + "moved"},
        {image("201", {.status = 201}), odd},
        {image("401", refusedReply(401)), odd},
        {"ftp://localhost/a.png"s, "Error hitting image URL: unsupported URL"},
        {"https:///a.png"s, "Error hitting image URL: bad URL"},
        {" https://localhost/"s, "Invalid URL:  https://localhost/"},
        {""s, "Invalid URL: "},
        {std::string_view(text), good + text},
        {text.c_str(), good + text},
        {text.data(), good + text},
        {42, missing},
        {static_cast<const char*>(nullptr), missing},
        {static_cast<char*>(nullptr), missing},
        {RemoteMessage(), missing},
        {{}, missing}};
    std::vector<std::string> expected;
    for (const auto& [value, line] : table) {
        receive(value);
        expected.push_back(line);
    }
    plugin().onMessageReceived({{"notification", {}}});
    plugin().onMessageReceived({});
    expected.insert(expected.end(), 2, missing);
    settle();
    EXPECT_THAT(output().lines(), testing::IsSupersetOf(expected));
}

}  // namespace

}  // namespace kivo::tests
