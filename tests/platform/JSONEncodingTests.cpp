#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "kivo/platform/JSON.h"
#include "tests/platform/Records.h"

using namespace std::string_literals;

namespace kivo::platform {
namespace {

using testing::HasSubstr;
using tests::Envelope;
using tests::Person;
using Object = std::map<std::string, std::any>;

TEST(JSONEncoding, WritesPresentFieldsInOrder) {
    EXPECT_EQ(JSON::encode(Person{"Ana", std::nullopt}), R"({"name":"Ana"})");
    EXPECT_EQ(JSON::encode(Envelope<Person>{true, "", Person{"A", "7"}}),
              R"({"success":true,"message":"","data":{"name":"A","phone":"7"}})");
}

TEST(JSONEncoding, EscapesAndRepairsText) {
    const auto encoded = [](const std::string& text) {
        return JSON::encode(Person{text, std::nullopt});
    };
    EXPECT_EQ(encoded("\"\\/\b\f\n\r\t"), R"({"name":"\"\\\/\b\f\n\r\t"})");
    EXPECT_EQ(encoded("\0\x01\x1F\x7F"s), "{\"name\":\"\\u0000\\u0001\\u001f\x7F\"}");
    EXPECT_EQ(encoded("é😀\u2028"), "{\"name\":\"é😀\u2028\"}");
    EXPECT_EQ(encoded("a\xFFz\xE2\x82y\xED\xA0\x80\xF0\x9F"),
              "{\"name\":\"a\uFFFDz\uFFFDy\uFFFD\uFFFD\uFFFD\uFFFD\"}");
}

TEST(JSONEncoding, ReadsBackWhatItWrote) {
    std::string everyByte;
    for (int byte = 0; byte < 128; ++byte) everyByte += static_cast<char>(byte);
    EXPECT_EQ(JSON::decode<Person>(JSON::encode(Person{everyByte, ""})).name, everyByte);
}

TEST(JSONSerialization, WritesEveryKindOfValue) {
    char writable[] = "c";
    const Object parameters = {
        {"a", "text"s},
        {"b", std::string_view("view")},
        {"c", static_cast<const char*>("p")},
        {"d", &writable[0]},
        {"e", static_cast<const char*>(nullptr)},
        {"f", static_cast<char*>(nullptr)},
        {"g", true},
        {"h", -7},
        {"i", std::numeric_limits<std::uint64_t>::max()},
        {"j", 1.0},
        {"k", 0.1},
        {"l", 0.1F},
        {"m", Object{}},
        {"n", Object{{"x/y", std::vector<std::any>{1L, "\xFF"s, std::vector<std::any>{}}}}}};
    EXPECT_EQ(JSON::serialize(parameters),
              "{\"a\":\"text\",\"b\":\"view\",\"c\":\"p\",\"d\":\"c\",\"e\":null,\"f\":null,\"g\":"
              "true,\"h\":-7,"
              "\"i\":18446744073709551615,\"j\":1,\"k\":0.1,\"l\":0.1,\"m\":{},\"n\":{\"x\\/"
              "y\":[1,\"\uFFFD\",[]]}}");
    EXPECT_EQ(JSON::serialize({}), "{}");
}

std::string refusal(const Object& parameters) {
    try {
        return JSON::serialize(parameters);
    } catch (const JSON::EncodingError& error) {
        return describe(error);
    }
}

TEST(JSONSerialization, NamesTheKeyOfWhatItCannotWrite) {
    const std::vector<std::any> list = {1, Object{{"deep", std::nan("")}}};
    EXPECT_EQ(refusal({{"x", INFINITY}}), R"(cannot encode "x": the number is not finite)");
    EXPECT_EQ(refusal({{"list", list}}), R"(cannot encode "list.deep": the number is not finite)");
    EXPECT_THAT(refusal({{"a\nb", Person{}}}),
                HasSubstr(R"(cannot encode "a\nb": a value of type )"));
    EXPECT_THAT(refusal({{"x", std::any()}}), HasSubstr("has no form in JSON"));

    Object nested;
    for (int depth = 0; depth < 600; ++depth) nested = Object{{"k", std::move(nested)}};
    EXPECT_THAT(refusal(nested), HasSubstr("nested too deep"));
}

TEST(JSONText, ComesFromEveryFormOfText) {
    char writable[] = "w";
    EXPECT_EQ(JSON::text("s"s), "s");
    EXPECT_EQ(JSON::text(std::string_view("v")), "v");
    EXPECT_EQ(JSON::text(static_cast<const char*>("p")), "p");
    EXPECT_EQ(JSON::text(&writable[0]), "w");
    EXPECT_EQ(JSON::text(static_cast<char*>(nullptr)), std::nullopt);
    EXPECT_EQ(JSON::text(7), std::nullopt);
    EXPECT_EQ(JSON::text(std::any()), std::nullopt);
}

}  // namespace
}  // namespace kivo::platform
