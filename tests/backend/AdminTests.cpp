#include <gmock/gmock.h>

#include "backend/admin/Admin.h"
#include "backend/desk/Desk.h"

namespace kivo::tests {

namespace {

using backend::Header;
using testing::HasSubstr;

class AdminTest : public testing::Test {
protected:
    AdminTest() { desk.open(); }

    backend::Desk desk{{}, [](const auto&) {}};
};

TEST_F(AdminTest, ObeysProgramsHereAndNoOtherSitesPages) {
    const auto status = [&](const std::vector<Header>& headers) {
        return adminReply(desk, {.method = "GET", .target = "/state", .headers = headers}).status;
    };
    const std::string origin = "Origin";
    EXPECT_EQ(status({{"host", "LOCALHOST:8444"}}), 200);
    EXPECT_EQ(status({{"Host", "[::1]:8444"}, {origin, "http://[::1]:8444"}}), 200);
    EXPECT_EQ(status({{"Host", "127.0.0.1"}, {origin, "http://127.0.0.1"}}), 200);
    EXPECT_EQ(status({{"Host", "evil.example:8444"}}), 403);
    EXPECT_EQ(status({{"Host", "localhost.evil.example"}}), 403);
    EXPECT_EQ(status({{"Host", "localhost"}, {"Host", "localhost"}}), 403);
    EXPECT_EQ(status({}), 403);
    for (const auto* foreign : {"null", "http://evil.example", "http://localhost:1", ""})
        EXPECT_EQ(status({{"Host", "localhost:8444"}, {origin, foreign}}), 403) << foreign;
}

TEST_F(AdminTest, RefusesWhatItDoesNotUnderstand) {
    const std::vector<std::tuple<std::string, std::string, std::string, int, std::string>> cases{
        {"POST", "/faults", "{", 400, "not a JSON object"},
        {"POST", "/faults", R"({"rule":7})", 400, "wrong type"},
        {"POST", "/expire", R"({"kind":"x"})", 400, "must be user, merchant or all"},
        {"POST", "/images?file=a.png", "", 400, "empty"},
        {"POST", "/expectations", R"({"words":["x"]})", 400, "not an endpoint"},
        {"GET", "/requests?after=x", "", 200, R"({"requests":[]})"},
        {"PUT", "/state", "", 404, "no admin request PUT /state"}};
    for (const auto& [method, target, body, status, text] : cases) {
        const auto reply = adminReply(
            desk,
            {.method = method, .target = target, .headers = {{"Host", "localhost"}}, .body = body});
        EXPECT_EQ(reply.status, status) << target << body;
        EXPECT_THAT(reply.body, HasSubstr(text));
    }
}

}  // namespace

}  // namespace kivo::tests
