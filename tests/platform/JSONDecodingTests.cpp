#include <gtest/gtest.h>

#include <string>

#include "kivo/platform/Description.h"
#include "kivo/platform/JSON.h"
#include "tests/platform/Records.h"

using namespace std::string_literals;

namespace kivo::platform {
namespace {

using tests::Envelope;
using tests::Person;

/// What `json` decodes to, or the error's text.
std::string decoded(const Data& json) {
    try {
        return describe(JSON::decode<Envelope<Person>>(json));
    } catch (const DecodingError& error) {
        return describe(error);
    }
}

std::string envelope(const std::string& success, const std::string& message,
                     const std::string& data) {
    return "Test.Envelope<Test.Person>(success: " + success + ", message: \"" + message +
           "\", data: " + data + ")";
}

TEST(JSONDecoding, ReadsWhatRecordsAskFor) {
    const std::pair<Data, std::string> table[] = {
        {R"({"success":true,"message":"ok","data":{"name":"Ana","phone":"7"}})",
         envelope("true", "ok", R"(Optional(Test.Person(name: "Ana", phone: Optional("7"))))")},
        {R"({"success":false,"message":"","data":{"phone":null,"name":"A"}})",
         envelope("false", "", R"(Optional(Test.Person(name: "A", phone: nil)))")},
        {R"({"message":"m","success":true,"data":null})", envelope("true", "m", "nil")},
        {"\xEF\xBB\xBF \t\r\n{\"success\":true , \"message\":\"m\"}\n",
         envelope("true", "m", "nil")},
        {R"({"success":true,"success":1,"message":"first","message":null})",
         envelope("true", "first", "nil")},
        {R"({"x":[{"success":1},[1e5]],"y":{"message":{}},"success":true,"message":"m","z":-0.5})",
         envelope("true", "m", "nil")},
        {R"({"success":true,"message":"\u0000\ud83d\ude00\/é"})",
         envelope("true", "\\0😀/é", "nil")},
        {R"({"success":true,"message":"m","data":{"name":"A","name":{},"data":{"name":1}}})",
         envelope("true", "m", R"(Optional(Test.Person(name: "A", phone: nil)))")},
    };
    for (const auto& [json, expected] : table) EXPECT_EQ(decoded(json), expected) << json;
}

TEST(JSONDecoding, FailsAtTheFirstFieldThatCannotBeRead) {
    const std::pair<Data, std::string> table[] = {
        {R"({})", R"(keyNotFound at "success": there is no such key)"},
        {R"({"message":1})", R"(keyNotFound at "success": there is no such key)"},
        {R"({"success":true,"message":null})",
         R"(valueNotFound at "message": expected a text, found null)"},
        {R"({"success":"true","message":null})",
         R"(typeMismatch at "success": expected a Boolean, found a text)"},
        {R"({"success":1})", R"(typeMismatch at "success": expected a Boolean, found a number)"},
        {R"({"success":null,"success":true})",
         R"(valueNotFound at "success": expected a Boolean, found null)"},
        {R"({"success":true,"message":{"message":"m"}})",
         R"(typeMismatch at "message": expected a text, found an object)"},
        {R"({"success":true,"message":"m","data":[]})",
         R"(typeMismatch at "data": expected an object, found an array)"},
        {R"({"success":true,"message":"m","data":{"phone":"7"}})",
         R"(keyNotFound at "data.name": there is no such key)"},
        {R"({"success":true,"message":"m","data":{"name":"A","phone":false}})",
         R"(typeMismatch at "data.phone": expected a text, found a Boolean)"},
        {"null", "valueNotFound at the top level: expected an object, found null"},
        {"[{}]", "typeMismatch at the top level: expected an object, found an array"},
    };
    for (const auto& [json, expected] : table) EXPECT_EQ(decoded(json), expected) << json;
}

TEST(JSONDecoding, RefusesWhatIsNotJSONAndRepeatsNoneOfIt) {
    const auto withMessage = [](const std::string& text) {
        return R"({"success":true,"message":")" + text + "\"}";
    };
    for (const Data& json : {""s,
                             " "s,
                             "{"s,
                             "{}x"s,
                             "{}{}"s,
                             "{}\0"s,
                             R"({"success":true,"message":"m"})"s + "\0<tail>"s,
                             "\v{}"s,
                             R"({"success":True})"s,
                             R"({'success':true})"s,
                             R"({"success":true,})"s,
                             "{} // no"s,
                             "\xFE\xFF{}"s,
                             withMessage("\xFF"),
                             withMessage("\xC0\x80"),
                             withMessage("\xED\xA0\x80"),
                             withMessage("\n"),
                             withMessage("a\0b"s),
                             withMessage("\\ud800"),
                             withMessage("\\udc00\\ud800"),
                             withMessage("\\x")}) {
        const std::string text = decoded(json);
        EXPECT_TRUE(text.starts_with("dataCorrupted at the top level: ")) << json << ": " << text;
        EXPECT_TRUE(text.find_first_of("{<\\\xFF\n"s) == std::string::npos) << text;
    }
}

TEST(JSONDecoding, BoundsNesting) {
    const auto nested = [](std::size_t depth) {
        return R"({"x":)" + std::string(depth - 1, '[') + std::string(depth - 1, ']') +
               R"(,"success":true,"message":"m"})";
    };
    EXPECT_EQ(decoded(nested(512)), envelope("true", "m", "nil"));
    EXPECT_EQ(decoded(nested(513)), "dataCorrupted at the top level: nested too deep");
    EXPECT_EQ(decoded(std::string(100'000, '[')),
              "dataCorrupted at the top level: nested too deep");
}

std::string repeated(const std::string& piece, std::size_t size) {
    std::string text;
    while (text.size() < size) text += piece;
    return text;
}

const Data wantedTail = R"("success":true,"message":"m"})";

TEST(JSONDecoding, TakesTheLargestBodyFullOfKeysInItsStride) {
    constexpr std::size_t largestBody = 16U << 20U;
    EXPECT_EQ(decoded("{" + repeated(R"("k":1,)", largestBody) + wantedTail),
              envelope("true", "m", "nil"));
}

TEST(JSONDecoding, TakesHugeBodiesOfOtherKindsInItsStride) {
    constexpr std::size_t size = 1U << 20U;
    EXPECT_EQ(decoded("{" + repeated(R"("data":null,)", size) + wantedTail),
              envelope("true", "m", "nil"));
    EXPECT_EQ(decoded("{\"x\":[" + repeated("[],", size) + "0]," + wantedTail),
              envelope("true", "m", "nil"));
    EXPECT_EQ(decoded("{\"x\":" + std::string(size, '9') + "}").substr(0, 5), "dataC");
    EXPECT_EQ(decoded("{\"" + std::string(size, 'k')).substr(0, 5), "dataC");
}

TEST(JSONDecoding, ErrorsHaveAUsersText) {
    EXPECT_EQ(DecodingError(DecodingError::Kind::valueNotFound, "a", "b").localizedDescription(),
              "The data couldn’t be read because it is missing.");
    EXPECT_EQ(DecodingError(DecodingError::Kind::typeMismatch, "a", "b").localizedDescription(),
              "The data couldn’t be read because it isn’t in the correct format.");
}

}  // namespace
}  // namespace kivo::platform
