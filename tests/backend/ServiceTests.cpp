#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <set>

#include "backend/service/Service.h"

namespace kivo::tests {

namespace {

using namespace std::literals;
using backend::AuthRead;
using backend::Reply;
using backend::Service;
using nlohmann::json;

/// The members that the endpoints require, of all of them.
const std::string everything = R"({"apiKey":"key","countryCode":"40","phone":"","email":"",
    "name":"Ana","deviceToken":"d-1","permission":"DENIED","sessionId":""})";

Reply ask(Service& service, const std::string& method, const std::string& path,
          const std::string& bearers, const std::string& body = everything) {
    return service.answer({.method = method,
                           .target = (path.starts_with('/') ? "" : "/api/communication/") + path,
                           .headers = {{"authorization", bearers}},
                           .body = body});
}

std::string merchantToken(Service& service) {
    const auto reply = ask(service, "POST", "sdk/authenticate", "");
    return json::parse(reply.body)["data"]["merchantToken"];
}

class ServiceTest : public testing::Test {
protected:
    std::string userToken() {
        const auto reply = ask(service, "POST", "user/authenticate", "Bearer " + merchant);
        return json::parse(reply.body)["data"]["userToken"];
    }
    std::string outcome(const std::string& bearers) {
        const auto reply = ask(service, "POST", "user/update-device-token", bearers);
        return std::to_string(reply.status) + ": " +
               json::parse(reply.body)["message"].get<std::string>();
    }

    std::chrono::system_clock::time_point now = std::chrono::system_clock::now();
    Service service{{.lifetimes = {.user = 60s, .merchant = 90s}, .clock = [this] { return now; }}};
    const std::string merchant = merchantToken(service);
    const std::string user = userToken();
    const std::string good = "Bearer " + user;
};

TEST_F(ServiceTest, TakesOneSessionFromTheKeyToTheUnsetUser) {
    EXPECT_EQ(service.sessions().at(0).user.at("name"), "Ana");
    for (const auto* path : {"user/update-device-token", "user/update-notification-consent"})
        EXPECT_EQ(ask(service, "POST", path, good).status, 200);
    EXPECT_EQ(ask(service, "PUT", "user/unset", good).status, 200);
    const auto session = service.sessions().at(0);
    EXPECT_EQ(session.apiKey + " " + session.deviceToken + " " + session.permission,
              "key d-1 DENIED");
    EXPECT_TRUE(session.user.empty());
}

TEST_F(ServiceTest, ServesAnyPictureAndRefusesWhatTheContractDoesNotKnow) {
    EXPECT_THAT(service.answer({.method = "GET", .target = "http://host/img/one.png?hit=1"}).body,
                testing::StartsWith("\x89PNG\r\n\x1a\n"));
    const std::vector<std::tuple<int, std::string, std::string, std::string>> cases{
        {404, "POST", "user", everything},
        {404, "POST", "//api/communication/sdk/authenticate", everything},
        {404, "GET", "/img/", ""},
        {405, "POST", "/img/a.png", ""},
        {405, "POST", "user/unset", everything},
        {400, "POST", "sdk/authenticate", "[]"},
        {400, "POST", "sdk/authenticate", R"({"apiKey":null})"},
        {400, "POST", "user/update-notification-consent", R"({"permission":"granted"})"}};
    for (const auto& [status, method, path, body] : cases)
        EXPECT_EQ(ask(service, method, path, good, body).status, status) << path << body;
}

TEST_F(ServiceTest, TakesTheLastBearerUntilItExpiresAndSaysWhyItIsRefused) {
    for (const auto& bearers : {""s, "Basic " + user, good + ",Bearer "})
        EXPECT_EQ(outcome(bearers), "401: the user token is missing") << bearers;
    const auto foreign = backend::Tokens({}).issue(backend::TokenKind::user, "S1");
    for (const auto& token : {user + ",Bearer stale", merchant, user + "A",
                              user.substr(0, user.rfind('.') + 1), foreign})
        EXPECT_EQ(outcome("Bearer " + token), "401: the user token is not valid") << token;
    now += 59999ms;
    EXPECT_EQ(outcome("Bearer stale,Bearer b, " + good), "200: device token updated");
    now += 1ms;
    EXPECT_EQ(outcome(good), "401: the user token has expired");
    EXPECT_EQ(outcome("Bearer " + userToken()), "200: device token updated");
}

TEST_F(ServiceTest, ForgetsTheOldestSessionsButHonoursTheirTokens) {
    for (int count = 0; count < 300; ++count) merchantToken(service);
    EXPECT_EQ(service.sessions().size(), 256);
    EXPECT_EQ(outcome(good), "200: device token updated");
    EXPECT_NE(userToken(), user);
}

TEST(SeededServiceTest, RepeatsItselfAndGoesByTheBearerThatItIsToldTo) {
    std::set<std::string> issued;
    const std::vector<std::pair<AuthRead, std::string>> cases{
        {AuthRead::first, "200 401"}, {AuthRead::last, "401 200"}, {AuthRead::any, "200 200"}};
    for (const auto& [authRead, accepted] : cases) {
        Service service({.authRead = authRead, .seed = 1});
        const auto token = merchantToken(service);
        const auto asFirstAndAsLast = [&] {
            std::string statuses;
            for (const auto& bearers : {token + ",Bearer x", "x,Bearer " + token}) {
                const auto reply = ask(service, "POST", "user/authenticate", "Bearer " + bearers);
                statuses += (statuses.empty() ? "" : " ") + std::to_string(reply.status);
            }
            return statuses;
        };
        service.expire(backend::TokenKind::user);
        EXPECT_EQ(asFirstAndAsLast(), accepted);
        service.expire();
        EXPECT_EQ(asFirstAndAsLast(), "401 401");
        service.reset();
        EXPECT_EQ(asFirstAndAsLast(), "401 401");
        issued.insert({token, merchantToken(service)});
    }
    EXPECT_EQ(issued.size(), 1);
}

}  // namespace

}  // namespace kivo::tests
