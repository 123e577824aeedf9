#include "backend/Service.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace kivo::tests {
namespace {

using namespace std::chrono_literals;
using backend::Reply;
using backend::Request;
using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

const std::string root = "/api/communication/";

class ServiceTest : public testing::Test {
protected:
    Reply ask(const std::string& method, const std::string& path, const json& body,
              const std::string& authorization = "") {
        Request request{.method = method, .target = path, .body = body.dump()};
        if (!authorization.empty()) request.headers.push_back({"authorization", authorization});
        return service.answer(request);
    }
    Reply updateToken(const std::string& authorization) {
        return ask("POST", root + "user/update-device-token", {{"deviceToken", "d-1"}},
                   authorization);
    }
    std::string merchantToken() {
        const auto reply = ask("POST", root + "sdk/authenticate", {{"apiKey", "key"}});
        return json::parse(reply.body)["data"]["merchantToken"];
    }
    std::string userToken() {
        const json user{{"countryCode", "40"}, {"phone", ""}, {"email", ""}, {"name", "Ana"}};
        const auto reply =
            ask("POST", root + "user/authenticate", user, "Bearer " + merchantToken());
        return json::parse(reply.body)["data"]["userToken"];
    }

    std::chrono::system_clock::time_point now = std::chrono::system_clock::now();
    backend::Service service{{.user = 60s, .merchant = 60s}, [this] { return now; }};
};

TEST_F(ServiceTest, TakesOneSessionFromTheKeyToTheUnsetUser) {
    const auto bearer = "Bearer " + userToken();
    EXPECT_EQ(service.sessions().at(0).user.at("name"), "Ana");
    const std::vector<std::tuple<std::string, std::string, json>> steps{
        {"POST", "user/update-device-token", {{"deviceToken", "d-1"}}},
        {"POST", "user/update-notification-consent", {{"permission", "DENIED"}}},
        {"PUT", "user/unset", {{"sessionId", ""}}},
    };
    for (const auto& [method, path, body] : steps) {
        const auto reply = ask(method, root + path, body, bearer);
        EXPECT_EQ(reply.status, 200) << path;
        const auto envelope = json::parse(reply.body);
        EXPECT_TRUE(envelope["success"] == true && envelope["message"].is_string() &&
                    envelope["data"]["message"].is_string())
            << reply.body;
    }
    const auto session = service.sessions().at(0);
    EXPECT_EQ(session.apiKey, "key");
    EXPECT_EQ(session.deviceToken, "d-1");
    EXPECT_EQ(session.permission, "DENIED");
    EXPECT_TRUE(session.user.empty());
}

TEST_F(ServiceTest, OfSeveralBearersTheLastCounts) {
    const auto good = "Bearer " + userToken();
    EXPECT_EQ(updateToken("Bearer stale," + good).status, 200);
    EXPECT_EQ(updateToken("Bearer a,Bearer b, " + good).status, 200);
    EXPECT_EQ(updateToken(good + ",Bearer stale").status, 401);
    EXPECT_EQ(updateToken(good + ",Bearer ").status, 401);
}

TEST_F(ServiceTest, SaysWhyABearerIsRefused) {
    const auto user = userToken();
    const auto merchant = merchantToken();
    now += 30s;
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", "missing"},
        {"Bearer ", "missing"},
        {"Basic " + user, "missing"},
        {user, "missing"},
        {"Bearer " + merchant, "no valid user token"},
        {"Bearer " + user + "x", "no valid user token"},
    };
    const auto expectRefusal = [&](const std::string& authorization, const std::string& reason) {
        const auto reply = updateToken(authorization);
        EXPECT_EQ(reply.status, 401) << authorization;
        EXPECT_EQ(json::parse(reply.body)["success"], false);
        EXPECT_THAT(reply.body, HasSubstr(reason)) << authorization;
    };
    for (const auto& [authorization, reason] : cases) expectRefusal(authorization, reason);
    EXPECT_EQ(updateToken("Bearer " + user).status, 200);
    now += 31s;
    expectRefusal("Bearer " + user, "expired");
    EXPECT_EQ(ask("POST", root + "user/authenticate", json::object(), "Bearer " + user).status,
              401);
}

TEST_F(ServiceTest, RefusesWhatTheContractDoesNotKnow) {
    const auto bearer = "Bearer " + userToken();
    const std::vector<std::tuple<int, std::string, std::string, json>> cases{
        {404, "POST", "/api/communication/user", {}},
        {404, "POST", "//api/communication/sdk/authenticate", {{"apiKey", "k"}}},
        {405, "POST", root + "user/unset", {{"sessionId", ""}}},
        {405, "PUT", root + "sdk/authenticate", {{"apiKey", "k"}}},
        {405, "POST", "/img/a.png", {}},
        {400, "POST", root + "sdk/authenticate", json::array()},
        {400, "POST", root + "sdk/authenticate", {{"apiKey", nullptr}}},
        {400, "POST", root + "user/update-notification-consent", {{"permission", true}}},
        {400, "POST", root + "user/update-notification-consent", {{"permission", "granted"}}},
    };
    for (const auto& [status, method, path, body] : cases) {
        const auto reply = ask(method, path, body, bearer);
        EXPECT_EQ(reply.status, status) << method << " " << path << " " << body;
        EXPECT_EQ(json::parse(reply.body)["success"], false);
    }
    EXPECT_EQ(service.answer({.method = "POST", .target = root + "sdk/authenticate"}).status, 400);
}

TEST_F(ServiceTest, ServesAnImageOfEachName) {
    const auto one = ask("GET", "/img/one.png?hit=1", {});
    EXPECT_EQ(one.status, 200);
    EXPECT_THAT(one.body, StartsWith("\x89PNG\r\n\x1a\n"));
    EXPECT_NE(one.body, ask("GET", "/img/two.png", {}).body);
    EXPECT_EQ(ask("GET", "/img/", {}).status, 404);
}

TEST_F(ServiceTest, ForgetsTheOldestSessionsButHonoursTheirTokens) {
    const auto bearer = "Bearer " + userToken();
    for (int count = 0; count < 300; ++count) merchantToken();
    EXPECT_EQ(service.sessions().size(), 256);
    EXPECT_EQ(updateToken(bearer).status, 200);
}

}  // namespace
}  // namespace kivo::tests
