#include <gmock/gmock.h>

#include <array>
#include <sstream>

#include "backend/journal/Contract.h"
#include "backend/service/Service.h"

namespace kivo::tests {

namespace {

using backend::Contract;
using backend::Request;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Request read(const std::string& text) {
    std::istringstream lines(text);
    Request request;
    lines >> request.method >> request.target >> std::ws;
    for (std::string line; std::getline(lines, line) && !line.empty();)
        request.headers.push_back(
            {line.substr(0, line.find(": ")), line.substr(line.find(": ") + 2)});
    std::getline(lines, request.body);
    return request;
}

std::string replaced(std::string text, const std::string& part, const std::string& other) {
    return text.replace(text.find(part), part.size(), other);
}

class ContractTest : public testing::Test {
protected:
    /// Each violation as "PART NAME: TEXT".
    std::vector<std::string> check(const std::string& text) {
        constexpr std::array parts{"path", "method", "header", "body", "member"};
        std::vector<std::string> found;
        for (const auto& each : contract.violations(read(text)))
            found.push_back(std::string(parts.at(static_cast<std::size_t>(each.part))) + " " +
                            each.name + ": " + each.text);
        return found;
    }

    backend::Tokens tokens{{}};
    Contract contract{[this](std::string_view token) { return tokens.issuedClaims(token); }};
    const std::string m1 = tokens.issue(backend::TokenKind::merchant, "S1");
    const std::string u1 = tokens.issue(backend::TokenKind::user, "S1");
    const std::string u2 = tokens.issue(backend::TokenKind::user, "S1");
    const std::string unset =
        "PUT /push/api/communication/user/unset\nContent-Type: application/json\n"
        "x-sdk-version: 1.0.0\nx-platform: IOS\nx-package-name: com.example\nx-session-id: \n"
        "x-unique-device-id: id\nAuthorization: Bearer " +
        u1 + ",Bearer foreign,Bearer " + u2 + "\n\n{\"sessionId\":\"\"}";
    const std::string user = replaced(
        replaced(replaced(replaced(unset, "user/unset", "user/authenticate"), "PUT", "POST"),
                 unset.substr(unset.find("Bearer")), "Bearer " + m1 + "\n\n"),
        "\n\n", "\n\n{\"email\":\"é\",\"name\":\"\",\"phone\":\"\",\"countryCode\":\"\"}");
};

TEST_F(ContractTest, NamesEachNearMissInWords) {
    const std::string path = "/push/api/communication/user/unset", last = ",Bearer " + u2,
                      all = unset.substr(unset.find("Authorization"), unset.find("\n\n")),
                      value = "Bearer " + u1, body = "{\"sessionId\":\"\"}";
    struct NearMisses {
        std::string words, part;
        std::vector<std::string> instead;
    };
    const std::vector<NearMisses> table{
        {"not one of the contract's five",
         path,
         {"/api/communication/user/unst", "/api/communication/user/Unset", "//user/unset",
          "/api/communication//user/unset", "//api/communication/user/unset", path + "/",
          path + "%20", "/api/communication/user%2Funset", "/api/communication/user/%75nset",
          path + ";a=1", "/api/communication/user/../user/unset", "/api/communication",
          "/API/communication/user/unset", "/api/comunication/user/unset",
          "/api/communication/user/unset/x", "/%61pi/communication/x", "/api/communication/sdk",
          "/v2/user/authenticate", "/user/update-device-token/"}},
        {"path : the path has a query",
         path,
         {path + "?", path + "?a=1", path + "#a", path + "?redirected"}},
        {"method : the method is ",
         "PUT",
         {"POST", "put", "Put", "GET", "DELETE", "OPTIONS", "HEAD", "PATCH"}},
        {"Content-Type is missing", "Content-Type: application/json\n", {"", "ContentType: a\n"}},
        {"it must be \"application/json\"",
         "application/json",
         {"application/xml", "application/json; charset=utf-8", "Application/JSON", "",
          "application/json,application/json"}},
        {"it must be \"1.0.0\"", "1.0.0", {"1.0", "1.0.1", "v1.0.0", ""}},
        {"it must be \"IOS\"", ": IOS", {": iOS", ": ANDROID", ": ", ": IOS,IOS"}},
        {"header x-platform: x-platform appears 2 times",
         "x-platform: IOS",
         {"x-platform: IOS\nX-Platform: IOS"}},
        {"x-package-name is empty", "com.example", {""}},
        {"x-session-id is missing", "x-session-id", {"x-sessionid", "session-id"}},
        {"x-unique-device-id is missing", "x-unique-device-id: id\n", {""}},
        {"Authorization is missing", "Authorization", {"Authorisation", "Proxy-Authorization"}},
        {"appears in 2 lines", last, {"\nauthorization: " + value}},
        {"it must be \"Bearer\"",
         "Bearer ",
         {"bearer ", "BEARER ", "Basic ", "Token ", "Bearer:", ""}},
        {"header Authorization: the values of Authorization are joined",
         last,
         {", Bearer " + u2, ",  Bearer a", ", "}},
        {"has no token", last, {",Bearer", ",Bearer "}},
        {"is malformed",
         last,
         {",Bearer  a", ",Bearer \"a\"", ",Bearer a b", ",Bearer a;b", ",Bearer é"}},
        {"before the refused one: \"U1\"", last, {last + "," + value}},
        {"merchant token \"M1\" instead of a user token", last, {",Bearer " + m1}},
        {"not a JSON object",
         body,
         {"", "[]", "null", "sessionId=", "{'sessionId':''}", body + ",", body + body,
          "{\"sessionId\":\"}", "{\"sessionId\":\"\",}", "{\"sessionId\":\"\xFF\"}",
          "\"" + body + "\""}},
        {"body : the body begins with a byte order mark", body, {"\xEF\xBB\xBF" + body}},
        {"the member \"sessionId\" twice", body, {"{\"sessionId\":1,\"sessionId\":\"\"}"}},
        {"member sessionId: the body lacks \"sessionId\"",
         body,
         {"{}", "{\"sessionid\":\"\"}", "{\"a\":{\"sessionId\":\"\"}}"}},
        {"\"sessionId\" in the body is not a string", ":\"\"", {":1", ":null", ":[\"\"]", ":true"}},
        {"member é: the body has the unexpected member \"??\"", ":\"\"", {":\"\",\"é\":1"}}};
    for (const auto& [words, part, instead] : table) {
        for (const auto& other : instead)
            EXPECT_THAT(check(replaced(unset, part, other)), Contains(HasSubstr(words))) << other;
    }
    EXPECT_THAT(check(replaced(user, m1, m1 + ",Bearer " + m1)),
                ElementsAre(HasSubstr("carries 2")));
    EXPECT_THAT(check(replaced(user, "user/authenticate", "sdk/authenticate")),
                Contains("header Authorization: Authorization must not be sent"));
}

TEST_F(ContractTest, AccusesNothingThatTheSdkMaySend) {
    for (const auto& right :
         {unset, user, replaced(unset, "/push/", "/"), replaced(unset, ": id", ": "),
          replaced(unset, "x-session-id: ", "x-session-id: S1"), replaced(unset, u1, "a.b-c"),
          std::string("GET /favicon.ico?\n\n"), std::string("GET /img/a.png?x\n\n"),
          std::string("OPTIONS /api/communication/user/unset\nOrigin: http://a\n"
                      "Access-Control-Request-Method: PUT\n\n")})
        EXPECT_THAT(check(right), IsEmpty()) << right;
}

TEST_F(ContractTest, SomeRequestsAreRightOnceForEachReplyThatCausedThem) {
    const auto bare = replaced(user, m1, ""), get = replaced(user, "POST", "GET"),
               followed = replaced(get.substr(0, get.find("\n\n") + 2), "", ""),
               absent = replaced(unset, "Authorization", "x-other");
    const auto answered = [&](const std::string& request, const backend::Reply& reply) {
        contract.remember(read(request), reply);
    };
    const auto times = [&](const std::string& text) {
        int count = 0;
        while (count < 9 && check(text).empty()) ++count;
        return count;
    };
    EXPECT_EQ(times(bare) + times(absent) + times(followed), 0);
    answered(replaced(user, "user/authenticate", "sdk/authenticate"),
             backend::Reply::json(200, R"({"data":{"merchantToken":""}})"));
    answered(user, backend::Reply::json(200, R"({"data":{"userToken":""}})"));
    answered(user, {.status = 302});
    answered(user, {.status = 307});
    EXPECT_THAT((std::vector{times(bare), times(absent), times(followed)}), ElementsAre(1, 1, 1));
    EXPECT_EQ(times(replaced(user, "authenticate", "authenticate?redirected")), 2);
    answered(user, backend::Reply::json(200, R"({"data":{"userToken":"a\r\nb"}})"));
    EXPECT_EQ(times(absent), 9) << "no header can carry this token";
}

}  // namespace

}  // namespace kivo::tests
