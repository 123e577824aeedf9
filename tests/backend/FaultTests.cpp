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

}  // namespace

}  // namespace kivo::tests
