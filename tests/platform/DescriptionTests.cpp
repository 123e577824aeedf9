#include "kivo/platform/Description.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <string>

#include "kivo/platform/Error.h"
#include "kivo/platform/FatalError.h"
#include "kivo/platform/UTF8.h"
#include "kivo/platform/UUID.h"
#include "tests/platform/Records.h"

using namespace std::string_literals;

namespace kivo::platform {
namespace {

using tests::Envelope;
using tests::Person;

TEST(Description, ShowsRecordsAndOptionals) {
    const std::optional reply = Envelope<Person>{true, "ok", Person{"Ana", std::nullopt}};
    EXPECT_EQ(describe(reply),
              "Optional(Test.Envelope<Test.Person>(success: true, message: \"ok\", "
              "data: Optional(Test.Person(name: \"Ana\", phone: nil))))");
    EXPECT_EQ(describe(std::optional<Envelope<Person>>()), "nil");
    EXPECT_EQ(describe("a literal"), "\"a literal\"");
}

TEST(Description, EscapesWhatWouldBreakALine) {
    EXPECT_EQ(describe("\"\\\n\r\t\0\x1B\x7F/é😀"s), R"("\"\\\n\r\t\0\u{1B}\u{7F}/é😀")");
    EXPECT_EQ(describe("\u0085\u009F\u00A0\u0100\u0102"), "\"\\u{85}\\u{9F}\u00A0\u0100\u0102\"");
    EXPECT_EQ(describe("a\xFF\xE2\x82z\xC3"), "\"a\uFFFD\uFFFDz\uFFFD\"");
}

TEST(UTF8, KnowsWellFormedText) {
    for (const auto& text :
         {""s, "a\0b"s, "\x7F"s, "\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0010FFFF"s})
        EXPECT_TRUE(UTF8::isWellFormed(text)) << text;
    for (const auto& text :
         {"\x80"s, "\xC1\xBF"s, "\xE0\x9F\xBF"s, "\xED\xA0\x80"s, "\xF0\x8F\xBF\xBF"s,
          "\xF4\x90\x80\x80"s, "\xF5\x80\x80\x80"s, "\xC3"s, "a\xE2\x82"s, "\xF0\x9F\x98z"s})
        EXPECT_FALSE(UTF8::isWellFormed(text)) << testing::PrintToString(text);
}

TEST(Error, HasAPrintedAndALocalizedText) {
    const NSError noData("No data", -1);
    const URLError timedOut(URLError::timedOut);
    const std::exception& asBase = timedOut;
    EXPECT_EQ(describe(noData), "Error Domain=No data Code=-1 \"(null)\"");
    EXPECT_EQ(localizedDescription(noData),
              "The operation couldn’t be completed. (No data error -1.)");
    EXPECT_EQ(describe(asBase),
              "Error Domain=NSURLErrorDomain Code=-1001 \"The request timed out.\"");
    EXPECT_EQ(localizedDescription(asBase), "The request timed out.");
    EXPECT_EQ(describe(std::runtime_error("foreign")), "foreign");
    EXPECT_EQ(localizedDescription(std::make_exception_ptr(noData)), localizedDescription(noData));
    EXPECT_EQ(describe(std::make_exception_ptr(7)), "unknown error");
}

TEST(FatalErrorDeathTest, StopsTheProcessAtAForcedUnwrapOfNothing) {
    EXPECT_EQ(unwrap(std::optional("x"s)), "x");
    const std::optional<std::string> nothing;
    EXPECT_EXIT(unwrap(nothing), testing::KilledBySignal(SIGABRT),
                "^Fatal error: Unexpectedly found nil while unwrapping an Optional value\n$");
}

TEST(UUID, IsRandomVersionFourInUpperCase) {
    std::set<std::string> drawn;
    for (int count = 0; count < 1000; ++count) {
        const UUID uuid;
        EXPECT_THAT(uuid.uuidString(),
                    testing::MatchesRegex(
                        "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
        drawn.insert(uuid.uuidString());
    }
    EXPECT_EQ(drawn.size(), 1000U);
}

}  // namespace
}  // namespace kivo::platform
