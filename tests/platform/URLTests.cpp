#include <gtest/gtest.h>

#include "kivo/platform/url/URL.h"

using namespace std::string_view_literals;

namespace kivo::platform {

namespace {

std::string parsed(std::string_view text) {
    const auto url = URL::parse(text);
    return url ? url->absoluteString() : "nil";
}

TEST(URL, LeavesWellFormedAddressesAsTheyAre) {
    for (const char* text :
         {"https://host/path", "HTTPS://Example.COM:443/a/../b/./c", "a/relative/path", "?query",
          "http://user:pa:ss@h:/?a=/?b#f/?", "http://h:99999/", "//host/path", "#", "x:", "http://",
          "mailto:ana@example.com", "http:///x", "http://[::1]:8443/%41%e4", "a.b+c-1:x",
          "https://[fe80::1%25eth0]/", "http://h/a;b=c,(d)'!*+$&~_.-", "host/a:b", "http://u@/x"})
        EXPECT_EQ(parsed(text), text);
}

TEST(URL, RefusesWhatCannotBeAnAddress) {
    for (const char* text :
         {"", " http://h", "1http://h", ":x", "a b:c", "http://h:8a/", "http://h:-1/", "//h:x",
          "http://h:80:90/", "http://[::1", "http://[::g]/", "http://[::1]x/", "http://[::1]:8x",
          "http://[]/", "http://[1.2.3.4]/", "http://[::1%25]/", "http://[::1%25a/b]"})
        EXPECT_EQ(parsed(text), "nil") << text;
    for (const auto text : {"ht\0tp://h"sv, "http://[::1\0]/"sv}) EXPECT_EQ(parsed(text), "nil");
    for (const char character : " <>\"\\^{}|[]\r\n\x7F\0"sv)
        EXPECT_EQ(parsed("http://a" + std::string(1, character) + "b/"), "nil") << character;
}

TEST(URL, EncodesWhatMayNotStandInItsPart) {
    // clang-format off
    const std::pair<std::string_view, const char*> table[] = {
        {"http://h/é b?ü#ß", "http://h/%C3%A9%20b?%C3%BC#%C3%9F"}, {"http://h/\xFF%zz%4", "http://h/%FF%25zz%254"},
        {"http://h/\r\nX: y\0z"sv, "http://h/%0D%0AX:%20y%00z"}, {R"(http://h/<>"\^`{|})", "http://h/%3C%3E%22%5C%5E%60%7B%7C%7D"},
        {"http://h/[1]?[2]#[3]#4", "http://h/%5B1%5D?%5B2%5D#%5B3%5D%234"}, {"a path", "a%20path"},
        {R"(http://a b:c\d@evil@h/)", "http://a%20b:c%5Cd%40evil@h/"}};
    // clang-format on
    for (const auto& [text, expected] : table) EXPECT_EQ(parsed(text), expected);
}

TEST(URL, GivesInternationalHostsTheirIdnaForm) {
    const std::pair<std::string_view, std::string_view> table[] = {
        {"http://bücher.example/b.png", "http://xn--bcher-kva.example/b.png"},
        {"http://u@BU\u0308CHER.Example:80/é", "http://u@xn--bcher-kva.example:80/%C3%A9"},
        {"//straße。de", "//xn--strae-oqa.de"},
        {"http://b%C3%BCcher/", "http://b%C3%BCcher/"}};  // An escape is ASCII, and stays.
    for (const auto& [text, expected] : table) EXPECT_EQ(parsed(text), expected);
    for (const char* host : {"☃.net", "-ü", "\xFF", "a／ü", "a／b", "a＠b", "%41.ü", "\u00AD"})
        EXPECT_EQ(parsed(std::string("http://") + host), "nil") << host;
}

TEST(URL, ComparesOrigins) {
    const auto origin = *URL::parse("https://Host/a");
    for (const char* same : {"https://host:/b", "HTTPS://HOST:443", "https://u:p@host:0443/?q"})
        EXPECT_TRUE(origin.hasSameOrigin(*URL::parse(same))) << same;
    for (const char* other : {"http://host:443/a", "https://host:8443/a", "https://host.example/a",
                              "https://host@h/a", "/a", "https://host:18446744073709552059"})
        EXPECT_FALSE(origin.hasSameOrigin(*URL::parse(other))) << other;
    EXPECT_EQ(URL::parse("http://[::A]")->host(), "[::a]");
}

}  // namespace

}  // namespace kivo::platform
