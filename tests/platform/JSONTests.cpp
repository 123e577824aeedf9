#include <gmock/gmock.h>

#include <limits>

#include "kivo/platform/base/Description.h"
#include "kivo/platform/base/Error.h"
#include "kivo/platform/json/JSON.h"

using namespace std::string_literals;

namespace kivo::platform {

namespace {

using List = std::vector<std::any>;
using Object = std::map<std::string, std::any>;

struct Person {
    std::string name;
    std::optional<std::string> phone;

    static constexpr std::tuple fields{field("name", &Person::name),
                                       field("phone", &Person::phone)};
    static std::string typeName() { return "Person"; }
};

struct Reply {
    bool ok;
    std::string text;
    std::optional<Person> data;

    static constexpr std::tuple fields{field("ok", &Reply::ok), field("text", &Reply::text),
                                       field("data", &Reply::data)};
    static std::string typeName() { return "Reply"; }
};

/// What `json` reads as, written again, or the error's text.
std::string decoded(const Data& json) {
    try {
        return JSON::encode(JSON::decode<Reply>(json));
    } catch (const DecodingError& error) {
        return describe(error);
    }
}

const Data plain = R"({"ok":true,"text":"m"})";
const Data digits(1000, '1');
const Data corrupted = "dataCorrupted at the top level: ";
const Data malformed = R"(dataCorrupted at "text": the text is malformed)";

TEST(JSONDecoding, ReadsTheFirstOfEachKeyThatRecordsAskForOrSaysWhyNot) {
    // clang-format off
    const std::pair<Data, std::string> table[] = {
        {R"({"data":{"phone":"7","name":"A"},"ok":false,"text":""})", R"({"ok":false,"text":"","data":{"name":"A","phone":"7"}})"},
        {R"({"ok":true,"text":"","data":{"phone":null,"name":"A","name":{},"data":{"name":1}}})", R"({"ok":true,"text":"","data":{"name":"A"}})"},
        {R"({"ok":true,"text":"\u0000\ud83d\ude00\/é"})", R"({"ok":true,"text":"\u0000😀\/é"})"},
        {"\xEF\xBB\xBF \t\r\n{\"ok\":true , \"text\":\"m\",\"data\":null}\n", plain},
        {R"({"x":[{"ok":1},[1e5]],"y":{"text":{},"ok":[1,2,],"z":"",},"ok":true,"text":"m","text":null,"\u006fk":1,"z":-0.5,})", plain},
        {R"({"x":[-1e400,0.1e-99999999999,)" + digits + R"(],"\u006f\u006b":true,"text":"m"})", plain},
        {R"({"ok":)" + digits + "}", R"(typeMismatch at "ok": expected a Boolean, found a number)"},
        {R"({"text":1})", R"(keyNotFound at "ok": there is no such key)"},
        {R"({"ok":1})", R"(typeMismatch at "ok": expected a Boolean, found a number)"},
        {R"({"ok":"true","text":null})", R"(typeMismatch at "ok": expected a Boolean, found a text)"},
        {R"({"ok":null,"ok":true})", R"(valueNotFound at "ok": expected a Boolean, found null)"},
        {R"({"ok":true,"text":{"text":""}})", R"(typeMismatch at "text": expected a text, found an object)"},
        {R"({"ok":true,"text":"","data":[]})", R"(typeMismatch at "data": expected an object, found an array)"},
        {R"({"ok":true,"text":"","data":{"phone":"7"}})", R"(keyNotFound at "data.name": there is no such key)"},
        {R"({"ok":true,"text":"","data":{"name":"","phone":false}})", R"(typeMismatch at "data.phone": expected a text, found a Boolean)"},
        {"{\"x\":[\"\xFF\n\0\\\"\",\"\\ud83d\"],\"\\udc00\":\"\\ud83d\\ud83d\",\"ok\":true,\"text\":\"m\"}"s, plain},
        {R"({"ok":true,"text":"\q"})", malformed}, {"{\"ok\":true,\"text\":\"\n\"}", malformed}, {"{\"ok\":true,\"text\":\"\xED\xA0\x80\"}", malformed},
        {R"({"ok":true,"text":"\udc00"})", malformed}, {R"({"ok":true,"text":"\ud83d\ud83d"})", malformed}, {R"({"ok":true,"text":"\u00g0"})", malformed},
        {"null", "valueNotFound at the top level: expected an object, found null"},
        {"", corrupted + "there is no data"}, {plain + "\0<tail>"s, corrupted + "not valid JSON at byte 23"},
        {"{\"ok\":<html>", corrupted + "not valid JSON at byte 7"}, {plain + "{}", corrupted + "not valid JSON at byte 23"},
        {R"({"ok":"\")", corrupted + "not valid JSON at byte 10"}, {"{,}", corrupted + "not valid JSON at byte 2"}, {"[1,,]", corrupted + "not valid JSON at byte 4"},
        {"[1 2]", corrupted + "not valid JSON at byte 4"}, {R"({"a":1])", corrupted + "not valid JSON at byte 7"}, {"[tru]", corrupted + "not valid JSON at byte 2"}};
    // clang-format on
    for (const auto& [json, expected] : table) EXPECT_EQ(decoded(json), expected) << json;
}

TEST(JSONDecoding, TakesHostileBodiesInItsStride) {
    const auto nested = [](std::size_t depth) {
        return R"({"x":)" + Data(depth - 1, '[') + Data(depth - 1, ']') + "," + plain.substr(1);
    };
    EXPECT_EQ(decoded(nested(512)), plain);
    for (const auto& json : {nested(513), Data(100'000, '[')})
        EXPECT_EQ(decoded(json), corrupted + "nested too deep");
    for (const char* piece :
         {R"("k":1,)", R"("data":null,)", R"("x":[[],[]],)", R"("\u006b":"\\",)"}) {
        Data json = "{";
        while (json.size() < 16U << 20U) json += piece;
        EXPECT_EQ(decoded(json + plain.substr(1)), plain) << piece;
    }
}

TEST(JSONSerialization, WritesEveryKindOfValueAndRepairsText) {
    char letter[] = "w";
    const Object parameters = {
        {"a", "\"\\/\b\f\n\r\té😀"s},
        {"b", std::string_view("\0\x01\x1F", 3)},
        {"c", static_cast<const char*>("a\xFFz\xE2\x82y\xED\xA0\x80\xF0\x9F")},
        {"d", List{&letter[0], static_cast<char*>(nullptr), true, -7, 1.0, 0.1, 0.1F}},
        {"e", List{std::numeric_limits<std::uint64_t>::max(), Object{{"x/y", List{}}}}}};
    EXPECT_EQ(JSON::serialize(parameters),
              R"({"a":"\"\\\/\b\f\n\r\té😀","b":"\u0000\u0001\u001f","c":"a�z�y����",)"
              R"("d":["w",null,true,-7,1,0.1,0.1],"e":[18446744073709551615,{"x\/y":[]}]})");
}

TEST(Description, ShowsRecordsAndErrorsOnOneLine) {
    EXPECT_EQ(describe(std::optional(Reply{true, "\"\\\n\r\t\0\x1B\x7F/é😀"s, Person{"A", {}}})),
              R"(Optional(Reply(ok: true, text: "\"\\\n\r\t\0\u{1B}\u{7F}/é😀", )"
              R"(data: Optional(Person(name: "A", phone: nil)))))");
    const auto fine = "\u00A0\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0010FFFF"s;
    EXPECT_EQ(describe(fine + "\u0085\u009F\x80|\xC1\xBF|\xE0\x9F\xBF|\xED\xA0\x80|\xF0\x8F\xBF|"
                              "\xF4\x90\x80\x80|\xF5|\xE2\x82|\xF0\x9F\x98z\xC3"),
              '"' + fine + R"(\u{85}\u{9F}�|��|���|���|���|����|�|�|�z�")");
    EXPECT_EQ(describe(NSError("No data", -1)), "Error Domain=No data Code=-1 \"(null)\"");
}

}  // namespace

}  // namespace kivo::platform
