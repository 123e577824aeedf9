#include "backend/Tokens.h"

#include "backend/Base64Url.h"
#include "backend/Lifetimes.h"

#include <gmock/gmock.h>

#include <chrono>
#include <stdexcept>
#include <utility>
#include <vector>

namespace kivo::tests {
namespace {

using namespace std::chrono_literals;
using backend::Lifetimes;
using backend::parseLifetimes;
using backend::TokenKind;
using backend::Tokens;
using backend::TokenState;
using testing::HasSubstr;

class TokensTest : public testing::Test {
protected:
    TokenState stateOf(TokenKind kind, const std::string& token) const {
        return tokens.check(kind, token).state;
    }

    std::chrono::system_clock::time_point now = std::chrono::system_clock::now();
    Tokens tokens{{.user = 10s, .merchant = 20s}, [this] { return now; }};
};

TEST_F(TokensTest, AreGoodForTheirKindAndSessionUntilTheyExpire) {
    const auto user = tokens.issue(TokenKind::user, "S7");
    const auto merchant = tokens.issue(TokenKind::merchant, "S7");
    EXPECT_EQ(tokens.check(TokenKind::user, user).sessionId, "S7");
    EXPECT_EQ(stateOf(TokenKind::merchant, user), TokenState::wrong);
    now += 9999ms;
    EXPECT_EQ(stateOf(TokenKind::user, user), TokenState::valid);
    now += 2ms;
    EXPECT_EQ(stateOf(TokenKind::user, user), TokenState::expired);
    EXPECT_EQ(stateOf(TokenKind::merchant, merchant), TokenState::valid);
}

TEST_F(TokensTest, AreAllDifferent) {
    EXPECT_NE(tokens.issue(TokenKind::user, "S1"), tokens.issue(TokenKind::user, "S1"));
}

TEST_F(TokensTest, CannotBeForged) {
    const auto token = tokens.issue(TokenKind::user, "S1");
    const auto first = token.find('.');
    const auto last = token.rfind('.');
    const auto claims = token.substr(first + 1, last - first - 1);
    const auto signature = token.substr(last + 1);
    const auto unsignedHeader = backend::base64UrlEncode(R"({"alg":"none","typ":"JWT"})");
    const auto otherClaims = backend::base64UrlEncode(R"({"kind":"user","sid":"S2","exp":9e9})");
    const std::vector<std::string> forgeries{
        unsignedHeader + "." + claims + ".",
        unsignedHeader + "." + claims + "." + signature,
        token.substr(0, first) + "." + otherClaims + "." + signature,
        token.substr(0, last + 1),
        token + "A",
        Tokens({}).issue(TokenKind::user, "S1"),
        "..",
        std::string("\0.\xFF", 3),
    };
    for (const auto& forgery : forgeries) {
        EXPECT_EQ(stateOf(TokenKind::user, forgery), TokenState::wrong) << forgery;
    }
    EXPECT_EQ(stateOf(TokenKind::user, ""), TokenState::missing);
}

TEST(Base64UrlTest, KeepsEveryByteAndRefusesOtherText) {
    EXPECT_EQ(backend::base64UrlEncode("\xFB\xFF\xFE"), "-__-");
    for (const std::string bytes : {"", "a", "ab", "abc", "\xFF\x01\x80\xFE"}) {
        EXPECT_EQ(backend::base64UrlDecode(backend::base64UrlEncode(bytes)), bytes);
    }
    for (const std::string text : {"A", "AA==", "A+AA", "A AA", "\xFF\xFF\xFF\xFF"}) {
        EXPECT_EQ(backend::base64UrlDecode(text), std::nullopt) << text;
    }
}

TEST(LifetimesTest, AreReadOrRefusedWithAnExample) {
    const auto read = [](const char* text) {
        const auto lifetimes = parseLifetimes(text);
        return std::pair(lifetimes.user, lifetimes.merchant);
    };
    EXPECT_EQ(read("user=2s"), std::pair(2s, std::chrono::seconds(1h)));
    EXPECT_EQ(read("merchant=3h,user=4m"),
              std::pair(std::chrono::seconds(4min), std::chrono::seconds(3h)));
    for (const auto* text : {"", "user", "user=", "user=s", "user=5", "user=-1s", "user=1.5h",
                             "app=1s", "user=1s,", "user=99999999999h"}) {
        EXPECT_THAT([&] { parseLifetimes(text); }, testing::ThrowsMessage<std::invalid_argument>(
                                                       HasSubstr("user=15m,merchant=1h")))
            << text;
    }
}

}  // namespace
}  // namespace kivo::tests
