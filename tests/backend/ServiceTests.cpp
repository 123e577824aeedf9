#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "backend/service/Base64Url.h"
#include "backend/service/Service.h"

namespace kivo::tests {

namespace {

using namespace std::literals;
using backend::Reply;
using nlohmann::json;
using testing::HasSubstr;

class ServiceTest : public testing::Test {
protected:
    Reply ask(const std::string& method, const std::string& path, const json& body,
              const std::string& bearers) {
        return service.answer({.method = method,
                               .target = path.starts_with('/') ? path : root + path,
                               .headers = {{"authorization", bearers}},
                               .body = body.dump()});
    }
    void expect(int status, const std::string& method, const std::string& path, const json& body) {
        const auto reply = ask(method, path, body, good);
        SCOPED_TRACE(method + " " + path + " " + body.dump() + " gives " + reply.body);
        EXPECT_EQ(reply.status, status);
        auto envelope = json::parse(reply.body);
        EXPECT_EQ(envelope["success"], status == 200);
        EXPECT_EQ(envelope["data"]["message"].is_string(), status == 200);
    }
    std::string outcome(const Reply& reply) {
        const auto envelope = json::parse(reply.body);
        return std::to_string(reply.status) +
               (envelope.at("success") == true ? " yes: " : " no: ") +
               envelope.at("message").get<std::string>();
    }
    std::string merchantToken() {
        const auto reply = ask("POST", "sdk/authenticate", {{"apiKey", "key"}}, "");
        return json::parse(reply.body)["data"]["merchantToken"];
    }
    std::string userToken() {
        const json body{{"countryCode", "40"}, {"phone", ""}, {"email", ""}, {"name", "Ana"}};
        const auto reply = ask("POST", "user/authenticate", body, "Bearer " + merchant);
        return json::parse(reply.body)["data"]["userToken"];
    }
    Reply update(const std::string& bearers) {
        return ask("POST", "user/update-device-token", {{"deviceToken", "d-1"}}, bearers);
    }

    const std::string root = "/api/communication/";
    std::chrono::system_clock::time_point now = std::chrono::system_clock::now();
    backend::Service service{
        {.lifetimes = {.user = 60s, .merchant = 90s}, .clock = [this] { return now; }}};
    const std::string merchant = merchantToken();
    const std::string user = userToken();
    const std::string good = "Bearer " + user;
};

TEST_F(ServiceTest, TakesOneSessionFromTheKeyToTheUnsetUser) {
    EXPECT_EQ(service.sessions().at(0).user.at("name"), "Ana");
    expect(200, "POST", "user/update-device-token", {{"deviceToken", "d-1"}});
    expect(200, "POST", "user/update-notification-consent", {{"permission", "DENIED"}});
    expect(200, "PUT", "user/unset", {{"sessionId", ""}});
    const auto session = service.sessions().at(0);
    EXPECT_EQ(session.apiKey + " " + session.deviceToken, "key d-1");
    EXPECT_EQ(session.permission, "DENIED");
    EXPECT_TRUE(session.user.empty());
}

TEST_F(ServiceTest, ServesAnyPictureAndRefusesWhatTheContractDoesNotKnow) {
    EXPECT_THAT(ask("GET", "/img/one.png?hit=1", {}, "").body,
                testing::StartsWith("\x89PNG\r\n\x1a\n"));
    expect(404, "POST", "/api/communication/user", {});
    expect(404, "POST", "//api/communication/sdk/authenticate", {{"apiKey", "k"}});
    expect(404, "GET", "/img/", {});
    expect(405, "POST", "/img/a.png", {});
    expect(405, "POST", "user/unset", {{"sessionId", ""}});
    expect(405, "PUT", "sdk/authenticate", {{"apiKey", "k"}});
    expect(400, "POST", "sdk/authenticate", json::array());
    expect(400, "POST", "sdk/authenticate", {{"apiKey", nullptr}});
    expect(400, "POST", "user/update-notification-consent", {{"permission", true}});
    expect(400, "POST", "user/update-notification-consent", {{"permission", "granted"}});
    EXPECT_EQ(service.answer({.method = "POST", .target = root + "sdk/authenticate"}).status, 400);
}

TEST_F(ServiceTest, SaysWhyTheLastBearerIsRefused) {
    const auto payload = user.find('.') + 1;
    const auto end = user.rfind('.');
    const auto claims = user.substr(payload, end - payload);
    const auto signature = user.substr(end);
    const auto unsignedHeader = backend::base64UrlEncode(R"({"alg":"none","typ":"JWT"})") + ".";
    const auto otherClaims = backend::base64UrlEncode(R"({"kind":"user","sid":"S2","exp":9e9})");
    for (const auto& bearers : {""s, "Bearer "s, "Basic " + user, user, good + ",Bearer "})
        EXPECT_EQ(outcome(update(bearers)), "401 no: the user token is missing") << bearers;
    for (const auto& token :
         {user + ",Bearer stale", merchant, user + "A", ".."s, "\0.\xFF"s, user.substr(0, end + 1),
          user.substr(0, payload) + otherClaims + signature, unsignedHeader + claims + ".",
          unsignedHeader + claims + signature,
          backend::Tokens({}).issue(backend::TokenKind::user, "S1")})
        EXPECT_EQ(outcome(update("Bearer " + token)), "401 no: the user token is not valid")
            << token;
    EXPECT_EQ(outcome(ask("POST", "user/authenticate", {}, good)),
              "401 no: the merchant token is not valid");
}

TEST_F(ServiceTest, TakesTheLastBearerUntilItExpires) {
    now += 59999ms;
    for (const std::string stale : {"", "Bearer stale,", "Bearer a,Bearer b, "})
        EXPECT_EQ(outcome(update(stale + good)), "200 yes: device token updated") << stale;
    now += 2ms;
    EXPECT_EQ(outcome(update(good)), "401 no: the user token has expired");
    EXPECT_EQ(update("Bearer " + userToken()).status, 200);
}

TEST_F(ServiceTest, ForgetsTheOldestSessionsButHonoursTheirTokens) {
    for (int count = 0; count < 300; ++count) merchantToken();
    EXPECT_EQ(service.sessions().size(), 256);
    EXPECT_EQ(update(good).status, 200);
    EXPECT_NE(userToken(), user);
}

TEST(SeededServiceTest, RepeatsItselfAndGoesByTheBearerThatItIsToldTo) {
    const std::string claims = R"({"jti":"M1","kind":"merchant","sid":"S1"})";
    const std::string first = "eyJhbGciOiJIUzI1NiIsInR5cCI6IkpXVCJ9." +
                              backend::base64UrlEncode(claims) +
                              ".CRvpZaw5g664up7fdjOjrIoG6oC6vNTGRAuNpnc6gVg";
    const std::vector<std::pair<backend::AuthRead, std::string>> cases{
        {backend::AuthRead::first, "200 401"},
        {backend::AuthRead::last, "401 200"},
        {backend::AuthRead::any, "200 200"}};
    for (const auto& [authRead, accepted] : cases) {
        backend::Service service({.authRead = authRead, .seed = 1});
        const auto ask = [&](const std::string& path, const std::string& bearers) {
            const auto* body = R"({"apiKey":"","countryCode":"","phone":"","email":"","name":""})";
            return service.answer({.method = "POST",
                                   .target = "/api/communication/" + path,
                                   .headers = {{"Authorization", bearers}},
                                   .body = body});
        };
        const auto firstAndLast = [&] {
            const auto one = ask("user/authenticate", "Bearer " + first + ",Bearer x").status;
            const auto other = ask("user/authenticate", "Bearer x,Bearer " + first).status;
            return std::to_string(one) + " " + std::to_string(other);
        };
        EXPECT_EQ(firstAndLast(), "401 401") << "of an earlier run";
        EXPECT_THAT(ask("sdk/authenticate", "").body, HasSubstr(first));
        service.expire(backend::TokenKind::user);
        EXPECT_EQ(firstAndLast(), accepted);
        service.expire();
        EXPECT_EQ(firstAndLast(), "401 401");
        service.reset();
        EXPECT_THAT(ask("sdk/authenticate", "").body, HasSubstr(first));
    }
}

TEST(Base64UrlTest, KeepsEveryByteInTheAlphabetForUrls) {
    EXPECT_EQ(backend::base64UrlEncode("\xFB\xFF\xFE"), "-__-");
    EXPECT_EQ(backend::base64UrlDecode("-__-"), "\xFB\xFF\xFE");
}

}  // namespace

}  // namespace kivo::tests
