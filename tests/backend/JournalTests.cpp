#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "backend/admin/Expectation.h"
#include "backend/journal/LineColours.h"
#include "backend/journal/RequestLine.h"
#include "backend/journal/Secrets.h"
#include "backend/journal/Summary.h"
#include "backend/journal/Tally.h"
#include "backend/service/Service.h"

namespace kivo::tests {

namespace {

using backend::Entry;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Pair;

Entry entryFor(const std::string& path, int status = 200, const std::string& body = "") {
    return {.exchange = {.request = {.method = "POST", .target = path, .body = body},
                         .reply = {.status = status}}};
}

const std::string root = "/api/communication/";

TEST(JournalTest, KeepsTheNewestWithinItsBytesAndTellsObserversOfAll) {
    backend::Journal journal({.entries = 3, .bodyBytes = 60'000, .bytes = 130'000});
    std::string seen;
    journal.observe([&](const auto& entry) {
        seen += entry.exchange.request.target + "=" + std::to_string(entry.number) + " ";
    });
    const auto kept = [&](std::uint64_t after) {
        std::string targets;
        for (const auto& entry : journal.after(after).entries)
            targets += entry.exchange.request.target;
        return targets;
    };
    for (const auto* target : {"/1", "/2", "/3", "/4"}) journal.record(entryFor(target));
    EXPECT_EQ(kept(0) + " " + kept(3), "/2/3/4 /4");
    const std::string body(100'000, 'x');
    for (const auto* target : {"/5", "/6", "/7"}) journal.record(entryFor(target, 200, body));
    EXPECT_EQ(kept(0), "/6/7");
    EXPECT_EQ(journal.after(6).entries.front().exchange.request.body,
              body.substr(0, 60'000) + "… (100000 bytes in all)");
    EXPECT_EQ(journal.after().lost, 5U);
    EXPECT_THAT(std::pair(journal.after(4).lost, journal.after(9).lost), Pair(1U, 0U));
    journal.clear();
    EXPECT_THAT(std::pair(journal.after(4).lost, journal.newest()), Pair(0U, 7U));
    EXPECT_EQ(kept(0) + " " + seen, " /1=1 /2=2 /3=3 /4=4 /5=5 /6=6 /7=7 ");
}

TEST(RequestLineTest, ShowsAnExchangeWithoutObeyingIt) {
    backend::Service service;
    const auto opened = service.answer(
        {.method = "POST", .target = root + "sdk/authenticate", .body = R"({"apiKey":"k"})"});
    const auto token = nlohmann::json::parse(opened.body)["data"]["merchantToken"];
    auto entry = entryFor("/base" + root + "user/authenticate");
    entry.exchange.request.headers = {
        {"Authorization", "Bearer " + token.get<std::string>() + ",Bearer x"}};
    entry.exchange.reply = opened;
    entry.exchange.delivered = true;
    entry.carried = {"M1", "?"};
    entry.given = {"M1"};
    const std::string start = "  POST /base/api/communication/user/authenticate  200  0 ms  ";
    EXPECT_THAT(backend::requestLine(entry), EndsWith(start + "M1+? gives M1  ok\n"));
    EXPECT_THAT(backend::requestLine(entry, true), testing::HasSubstr("+?=x gives M1=eyJ"));
    entry.violations = {{.text = "no a"}, {.text = "b\n"}};
    entry.exchange.reply = {.status = 401, .fault = "*:401"};
    entry.given.clear();
    EXPECT_THAT(backend::requestLine(entry), EndsWith("  M1+?  BROKEN: no a; b?  fault *:401\n"));
    EXPECT_THAT(
        backend::requestLine(entryFor("/a\x1b[2J\xC3?b", 404)),
        EndsWith("  POST /a?[2J?  404  0 ms  not an endpoint of the contract  (not delivered)\n"));
    EXPECT_THAT(backend::requestLine({}),
                EndsWith("  (no HTTP request)  200  0 ms  (not delivered)\n"));
}

TEST(TallyTest, CountsByEndpointAndTheRefreshesThatRefusalsCaused) {
    backend::Tally tally;
    const std::string token = root + "user/update-device-token", user = root + "user/authenticate",
                      sdk = root + "sdk/authenticate";
    const std::vector<std::pair<std::string, int>> requests{
        {sdk, 200},   {user, 200},     {token, 401}, {token, 401}, {user, 200},  // One.
        {user, 401},  {sdk, 200},      {user, 200},                              // Two.
        {sdk, 200},   {"/img/a", 200}, {"/x", 404},  {"/y", 404},                // None.
        {token, 401}, {user, 401}};  // None: the renewal was refused, too.
    for (const auto& [path, status] : requests) tally.count(entryFor(path, status));
    EXPECT_EQ(tally.totals().refreshes, 2);
    EXPECT_THAT(tally.totals().requests,
                ElementsAre(Pair("images", 1), Pair("other paths", 2), Pair("sdk/authenticate", 3),
                            Pair("user/authenticate", 5), Pair("user/update-device-token", 3)));
}

TEST(SummaryTest, TellsWhyAHandshakeFailedWhereTheReasonIsKnown) {
    using testing::HasSubstr;
    EXPECT_THAT(backend::handshakeLine("tlsv1 alert unknown ca"), HasSubstr("not trust this back"));
    EXPECT_THAT(backend::handshakeLine("sslv3 alert certificate expired"),
                HasSubstr("the certificate has expired: is its clock right?"));
    EXPECT_THAT(backend::handshakeLine("stream truncated"), EndsWith(": stream truncated\n"));
}

TEST(ExpectationTest, IsMetByItsEndpointFieldsAndStatus) {
    const auto entry = entryFor(root + "user/authenticate", 401,
                                R"({"name":"Ana B","phone":7,"apiKey":"0123456789"})");
    const auto image = entryFor("/img/a.png");
    const std::string met = "met", other = "another endpoint";
    const auto check = [&](const std::vector<std::string>& words) -> std::string {
        const auto expected = backend::parseExpectation(backend::splitExpectations(words).at(0));
        if (!isForEndpoint(entry, expected)) return other;
        return meets(entry, expected) ? met : differences(entry, expected, false).front();
    };
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{" user/authenticate  status=401 "}, met},
        {{"user/authenticate status=200"}, "the status is 401, not 200"},
        {{"user/authenticate", "name=Ana B"}, met},
        {{"user/authenticate 'name=Ana B'"}, met},
        {{"user/authenticate name=\"Ana B\" status=401"}, met},
        {{"user/authenticate name=Ana"}, "\"name\" is \"Ana B\", not \"Ana\""},
        {{"user/authenticate email="}, "the body has no \"email\""},
        {{"user/authenticate phone=7"}, "\"phone\" is not a string"},
        {{"user/authenticate apiKey=k"},
         "\"apiKey\" is different (a secret, which serve and run --show-secrets show)"},
        {{"sdk/authenticate"}, other},
        {{"img/a.png"}, other}};
    for (const auto& [words, result] : cases) EXPECT_EQ(check(words), result) << words.front();
    EXPECT_TRUE(meets(image, backend::parseExpectation({"img/a.png", "status=200"})));
    EXPECT_THAT(
        backend::splitExpectations({"unset then img/a  status=200", "then", "unset", "a=b c"}),
        ElementsAre(ElementsAre("unset"), ElementsAre("img/a", "status=200"),
                    ElementsAre("unset", "a=b c")));
    for (const auto* text : {"", "then", "unset then", "unset 'a=b"})
        EXPECT_THROW(backend::splitExpectations({text}), std::invalid_argument) << text;
    using Words = std::vector<std::string>;
    for (const auto& words : {Words{"user"}, Words{"authenticate"}, Words{"unset", "x"},
                              Words{"unset", "=x"}, Words{"unset", "status=x"}})
        EXPECT_THROW(backend::parseExpectation(words), std::invalid_argument) << words.back();
}

TEST(LineColoursTest, FollowTheFieldsOfALine) {
    EXPECT_EQ(backend::coloured("1:2  POST /a  200  0 ms  U1  ok  fault *:401\n"),
              "\x1b[90m1:2\x1b[0m  POST /a  \x1b[32m200\x1b[0m  0 ms  U1  ok  "
              "\x1b[33mfault *:401\x1b[0m\n");
    EXPECT_EQ(
        backend::coloured("1:2  PUT /a  404  0 ms  BROKEN: no a; b"),
        "\x1b[90m1:2\x1b[0m  PUT /a  \x1b[33m404\x1b[0m  0 ms  \x1b[31mBROKEN: no a; b\x1b[0m");
}

TEST(SecretsTest, AreShortenedWhereverTheyStand) {
    using backend::withoutSecrets;
    const std::string token = "eyJh" + std::string(40, 'a') + ".last";
    EXPECT_EQ(withoutSecrets(R"({"data":{"userToken":")" + token + R"("},"name":"Ana"})"),
              R"({"data":{"userToken":"eyJh…last"},"name":"Ana"})");
    EXPECT_EQ(withoutSecrets(R"({"apiKey":"12345678","deviceToken":"123456789"})"),
              R"({"apiKey":"…","deviceToken":"1234…"})");
    std::string deep;
    for (int level = 0; level < 100'000; ++level) deep += "{\"\":";
    EXPECT_EQ(withoutSecrets(deep + "\"" + token + "\"" + std::string(100'000, '}')),
              deep + "\"eyJh…last\"" + std::string(100'000, '}'));
    EXPECT_EQ(withoutSecrets("{broken \"" + token), "{broken \"eyJh…last");
    EXPECT_EQ(withoutSecrets({"authorization", "Bearer " + token + ",Bearer abc"}).value,
              "Bearer eyJh…last,Bearer abc");
}

}  // namespace

}  // namespace kivo::tests
