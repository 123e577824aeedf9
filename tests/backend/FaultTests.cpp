#include <gmock/gmock.h>

#include <array>
#include <map>
#include <set>
#include <sstream>

#include "backend/faults/Faults.h"
#include "backend/faults/Latency.h"
#include "backend/journal/Contract.h"
#include "backend/service/Service.h"

namespace kivo::tests {

namespace {

using namespace std::chrono_literals;
using backend::Faults;
using backend::Request;
using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

void expectAdvice(const std::function<void(const std::string&)>& read,
                  const std::map<std::string, std::string>& advice) {
    for (const auto& [text, words] : advice)
        EXPECT_THAT([&] { read(text); }, ThrowsMessage<std::invalid_argument>(HasSubstr(words)))
            << text;
}

TEST(FaultRuleTest, IsReadAndWrittenOrRefusedWithAdvice) {
    for (const std::string rule :
         {"user/unset:401:times=2", "*:status=503,html:p=0.25", "img:redirect", "*:delay=80ms",
          "user/unset:redirect=308,loop:times=1:p=0.5", "*:refused-handshake"})
        EXPECT_EQ(backend::ruleOf(backend::parseFault(rule)), rule);
    EXPECT_EQ(backend::ruleOf(backend::parseFault("*:hang:p=1.0:times=01")), "*:hang:times=1");
    const auto read = [](const std::string& rule) { backend::parseFault(rule); };
    expectAdvice(read, {{"", "write ENDPOINT:KIND"},
                        {"user/unste:401", "user/unset, img, or *"},
                        {"*:404", "status=503[,json|html|empty|good]"},
                        {"*:delay=2", "write delay=2s"},
                        {"img:wrong-certificate", "write *:wrong-certificate"},
                        {"*:401:times=0", "write times=2 or p=0.3"},
                        {"*:401:p=nan", "write times=2 or p=0.3"},
                        {"*:401:often", "write times=2 or p=0.3"}});
}

std::string drawn(Faults& faults, const std::string& target) {
    const auto fault = faults.draw({.target = target});
    return fault ? backend::ruleOf(*fault) : "";
}

TEST(FaultsTest, DrawsTheNewestThatFitsAsOftenAsItIsMeant) {
    const std::string path = "/api/communication/user/unset";
    Faults faults(1);
    for (const auto* rule : {"*:hang", "user/unset:401:times=2", "*:wrong-certificate:times=1"})
        faults.add(backend::parseFault(rule));
    EXPECT_EQ(drawn(faults, "/push" + path + "?x"), "user/unset:401:times=2");
    EXPECT_EQ(drawn(faults, path + "?redirected"), "");
    EXPECT_EQ(drawn(faults, "/img/user/unset"), "*:hang");
    EXPECT_EQ(drawn(faults, path), "user/unset:401:times=2");
    EXPECT_EQ(drawn(faults, path), "*:hang");
    EXPECT_EQ(faults.drawHandshakeAction(), backend::HandshakeAction::presentUntrusted);
    EXPECT_EQ(faults.drawHandshakeAction(), backend::HandshakeAction::proceed);
    EXPECT_EQ(faults.list().at(1).hits, 2U);
    EXPECT_EQ(faults.clear("user/unset:401:times=2") + faults.clear() + faults.clear(), 3U);

    faults.add(backend::parseFault("*:401:p=0.3"));
    std::string hits;
    for (int count = 0; count < 60; ++count) hits += drawn(faults, "/").empty() ? '.' : 'X';
    EXPECT_EQ(hits, "..X..X..X.XX..XX....XXX......X...XX.X.X.....X....X.XXXXXXXX.") << "as seeded";
}

TEST(LifetimesTest, AreReadOrRefusedWithAnExample) {
    const auto lifetimes = backend::parseLifetimes("merchant=3h,user=4m");
    EXPECT_EQ(std::pair(lifetimes.user, lifetimes.merchant), std::pair(240s, 10800s));
    const auto read = [](const std::string& text) { backend::parseLifetimes(text); };
    for (const auto* text :
         {"", "user", "user=5", "user=1.5h", "app=1s", "user=1s,", "user=99999999999h"})
        expectAdvice(read, {{text, "user=15m,merchant=1h"}});
}

TEST(LatencyTest, IsDrawnAroundItsMiddleOrRefusedWithAnExample) {
    std::mt19937_64 generator(1);
    std::set<std::chrono::milliseconds> drawn;
    for (int count = 0; count < 2000; ++count)
        drawn.insert(backend::Latency::parse("9ms+-30").draw(generator));
    EXPECT_EQ(std::tuple(drawn.size(), *drawn.begin(), *drawn.rbegin()), std::tuple(40, 0ms, 39ms));
    const auto read = [](const std::string& text) { backend::Latency::parse(text); };
    for (const auto* text : {"80", "80ms+-", "-1s"}) expectAdvice(read, {{text, "80ms+-30ms"}});
}

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

TEST(ContractTest, NamesEachBreachInWords) {
    backend::Tokens tokens({});
    const auto merchant = tokens.issue(backend::TokenKind::merchant, "S1");
    const auto user = "Bearer " + tokens.issue(backend::TokenKind::user, "S1");
    const std::string good =
        "PUT /api/communication/user/unset\nContent-Type: application/json\nx-sdk-version: 1.0.0\n"
        "x-platform: IOS\nx-package-name: com.example\nx-session-id: \nx-unique-device-id: id\n"
        "Authorization: " +
        user + "," + user + "\n\n{\"sessionId\":\"\"}";
    EXPECT_THAT(backend::contractViolations(read(good)), IsEmpty());
    const std::vector<std::array<std::string, 3>> cases{
        {"PUT", "POST", "the method is \"POST\"; it must be PUT"},
        {"Content-Type: application/json\n", "", "Content-Type is missing"},
        {"/json", "/xml", "Content-Type is \"application/xml\"; it must be \"application/json\""},
        {"com.example", "", "x-package-name is empty"},
        {"," + user, "\nauthorization: " + user, "Authorization appears in 2 lines"},
        {"Authorization", "x-other", "Authorization is missing; it must carry a user token"},
        {"," + user, ",Bearer " + merchant, "merchant token \"M1\" instead of a user token"},
        {"," + user, ",Bearer", "has no token"},
        {"{\"sessionId\":\"\"}", "[]", "the body is not a JSON object"},
        {"\"sessionId\":\"\"", "", "the body lacks \"sessionId\""},
        {":\"\"", ":1", "\"sessionId\" in the body is not a string"},
        {":\"\"", ":\"\",\"é\":1", "the body has the unexpected member \"??\""},
        {"user/unset", "user/unsettled", ""}};
    for (const auto& [part, other, words] : cases) {
        auto text = good;
        text.replace(text.find(part), part.size(), other);
        const auto violations = backend::contractViolations(read(text));
        EXPECT_EQ(violations.size(), words.empty() ? 0U : 1U) << text;
        EXPECT_THAT(violations, Each(HasSubstr(words)));
    }
}

}  // namespace

}  // namespace kivo::tests
