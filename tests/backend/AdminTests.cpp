#include <gmock/gmock.h>

#include "backend/admin/Admin.h"
#include "backend/admin/AdminContext.h"
#include "backend/desk/Desk.h"

namespace kivo::tests {

namespace {

using backend::Header;
using testing::HasSubstr;

class AdminTest : public testing::Test {
protected:
    AdminTest() { desk.open(); }

    backend::Desk desk{{}, [](const auto&) {}};
    backend::AdminContext context{.desk = desk};
};

TEST_F(AdminTest, ObeysProgramsHereAndNoOtherSitesPages) {
    const auto status = [&](const std::vector<Header>& headers) {
        return adminReply(context, {.method = "GET", .target = "/state", .headers = headers})
            .status;
    };
    const std::string origin = "Origin";
    EXPECT_EQ(status({{"host", "LOCALHOST:8444"}}), 200);
    EXPECT_EQ(status({{"Host", "[::1]:8444"}, {origin, "http://[::1]:8444"}}), 200);
    EXPECT_EQ(status({{"Host", "127.0.0.1"}, {origin, "http://127.0.0.1"}}), 200);
    EXPECT_EQ(status({{"Host", "evil.example:8444"}}), 403);
    EXPECT_EQ(status({{"Host", "localhost.evil.example"}}), 403);
    EXPECT_EQ(status({{"Host", "localhost"}, {"Host", "localhost"}}), 403);
    EXPECT_EQ(status({}), 403);
    EXPECT_EQ(status({{"Host", "localhost"}, {"Sec-Fetch-Site", "same-site"}}), 403);
    EXPECT_EQ(status({{"Host", "localhost"}, {"Sec-Fetch-Site", "none"}}), 200);
    for (const auto* foreign : {"null", "http://evil.example", "http://localhost:1", ""})
        EXPECT_EQ(status({{"Host", "localhost:8444"}, {origin, foreign}}), 403) << foreign;
}

TEST_F(AdminTest, EventsResumeWhereAClientLeftOffAndTellWhatIsLost) {
    for (int count = 0; count < 300; ++count) desk.expire(std::nullopt);
    const auto run = std::to_string(
        std::chrono::floor<std::chrono::milliseconds>(context.start.time_since_epoch()).count());
    const auto text = [&](const std::string& target, const std::string& lastId) {
        const auto reply =
            adminReply(context, {.method = "GET",
                                 .target = target,
                                 .headers = {{"Host", "localhost"}, {"Last-Event-ID", lastId}}});
        return reply.more();
    };
    EXPECT_THAT(text("/events", ""),
                AllOf(HasSubstr("event: run\n"), HasSubstr("\"lost\":44"),
                      HasSubstr("id: " + run + "-300\n"), HasSubstr("event: state\n")));
    for (const auto& place : {run + "-299", run + "-x"}) {
        const bool isPlace = !place.ends_with('x');
        const auto counted = isPlace ? "\"lost\":0" : "\"lost\":44";
        EXPECT_THAT(text("/events", place), HasSubstr(counted));
        EXPECT_THAT(text("/events?after=" + place, ""), HasSubstr(counted));
    }
    EXPECT_THAT(adminReply(context,
                           {.method = "GET", .target = "/requests", .headers = {{"Host", "[::1]"}}})
                    .body,
                AllOf(HasSubstr("\"lost\":44"), HasSubstr("\"newest\":300")));
    EXPECT_THAT(text("/events", "1-299"), HasSubstr("\"lost\":44"));
    EXPECT_THAT(text("/events", run + "-300"), Not(HasSubstr("\"entries\"")));
    EXPECT_EQ(context.followers, 0U);
    std::vector<backend::Reply> followers(33);
    for (auto& reply : followers)
        reply = adminReply(context,
                           {.method = "GET", .target = "/events", .headers = {{"Host", "[::1]"}}});
    EXPECT_EQ(followers[31].status, 200);
    EXPECT_EQ(followers[32].status, 503);
}

TEST_F(AdminTest, RefusesWhatItDoesNotUnderstand) {
    const std::vector<std::tuple<std::string, std::string, std::string, int, std::string>> cases{
        {"POST", "/faults", "{", 400, "not a JSON object"},
        {"POST", "/faults", R"({"rule":7})", 400, "wrong type"},
        {"POST", "/expire", R"({"kind":"x"})", 400, "must be user, merchant or all"},
        {"POST", "/latency", R"({"latency":"x"})", 400, "write it like 80ms"},
        {"GET", "/", "", 200, "<!doctype html>"},
        {"POST", "/images?file=a.png", "", 400, "empty"},
        {"POST", "/expectations", R"({"words":["x"]})", 400, "not an endpoint"},
        {"POST", "/expectations", R"({"words":["unset then unset"]})", 400, "one expectation"},
        {"POST", "/expectations", R"({"words":["unset"],"after":9})", 400, "the newest is 0"},
        {"GET", "/requests?after=x", "", 400, "after takes a whole number"},
        {"GET", "/requests?broken=1&endpoint=authenticate", "", 400, "several endpoints"},
        {"GET", "/requests?status=200&limit=-1", "", 400, "limit takes a whole number"},
        {"PUT", "/state", "", 404, "no admin request PUT /state"}};
    for (const auto& [method, target, body, status, text] : cases) {
        const auto reply = adminReply(
            context,
            {.method = method, .target = target, .headers = {{"Host", "localhost"}}, .body = body});
        EXPECT_EQ(reply.status, status) << target << body;
        EXPECT_THAT(reply.body, HasSubstr(text));
    }
}

}  // namespace

}  // namespace kivo::tests
