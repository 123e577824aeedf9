#include <gmock/gmock.h>

#include <map>
#include <set>

#include "backend/faults/Faults.h"
#include "backend/faults/Latency.h"
#include "backend/service/Lifetimes.h"

namespace kivo::tests {

namespace {

using namespace std::chrono_literals;
using backend::Faults;
using testing::HasSubstr;
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
    for (const auto& [written, rule] : std::map<std::string, std::string>{
             {"*:hang:p=1.0:times=01", "*:hang:times=1"},
             {"unset:401", "user/unset:401"},
             {"device-token:hang:session=S12", "user/update-device-token:hang:session=S12"},
             {"/push/api/communication/user/authenticate:401", "user/authenticate:401"},
             {"communication/sdk/authenticate:empty-token", "sdk/authenticate:empty-token"}})
        EXPECT_EQ(backend::ruleOf(backend::parseFault(written)), rule);
    const auto read = [](const std::string& rule) { backend::parseFault(rule); };
    expectAdvice(read, {{"", "write ENDPOINT:KIND"},
                        {"user/unste:401", "user/unset, img, or *"},
                        {"*:lunch", "status=503[,json|html|empty|good]"},
                        {"authenticate:401", "several endpoints: sdk/authenticate, user/auth"},
                        {"nset:401", "is not an endpoint"},
                        {":401", "is not an endpoint"},
                        {"503", "did you mean status=503?"},
                        {"img:503", "did you mean status=503?"},
                        {"*:delay=2", "write delay=2s"},
                        {"unset:empty-token", "replies of user/unset contain no token"},
                        {"img:line-break-token", "replies of img contain no token"},
                        {"img:no-data", "images are not JSON"},
                        {"*:drip=0ms", "a pause of 0 delays nothing"},
                        {"img:401:session=S1", "images belong to no session"},
                        {"*:refused-handshake:session=S1", "handshakes belong to no session"},
                        {"*:401:session=1", "session=S1, or leave it out"},
                        {"*:401:session=S01", "session=S1, or leave it out"},
                        {"img:wrong-certificate", "write *:wrong-certificate"},
                        {"*:401:times=0", "write times=2, p=0.3 or"},
                        {"*:401:p=nan", "write times=2, p=0.3 or"},
                        {"*:401:often", "write times=2, p=0.3 or"}});
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
    const auto hits = [&] {
        std::string each;
        for (int count = 0; count < 60; ++count) each += drawn(faults, "/").empty() ? '.' : 'X';
        return each;
    };
    EXPECT_EQ(hits(), "..X..X..X.XX..XX....XXX......X...XX.X.X.....X....X.XXXXXXXX.")
        << "as seeded";
    faults.reseed(5);
    const auto anew = hits();
    faults.reseed(5);
    EXPECT_EQ(hits(), anew);
    faults.add(backend::parseFault("*:401"));
    faults.add(backend::parseFault("*:hang:session=S2"));
    EXPECT_EQ(faults.draw({.target = path}, "S2")->kind, "hang");
    EXPECT_EQ(faults.draw({.target = path}, "S1")->kind, "401");
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

}  // namespace

}  // namespace kivo::tests
