#include "kivo/platform/URL.h"

#include <gtest/gtest.h>

#include <string>

using namespace std::string_view_literals;

namespace kivo::platform {
namespace {

std::string parsed(std::string_view text) {
    const auto url = URL::parse(text);
    return url ? url->absoluteString() : "nil";
}

TEST(URL, LeavesWellFormedAddressesAsTheyAre) {
    for (const char* text :
         {"https://host/path", "HTTPS://Example.COM:443/a/../b/./c",
          "http://user:pa:ss@h:/?a=/?b#f/?", "http://h:99999/", "a/relative/path", "//host/path",
          "?query", "#", "mailto:ana@example.com", "x:", "http://", "http:///x",
          "http://[::1]:8443/%41%e4", "https://[fe80::1%25eth0]/", "http://h/a;b=c,(d)'!*+$&~_.-",
          "a.b+c-1:x", "host/a:b", "http://u@/x", "http://h%41.example/"})
        EXPECT_EQ(parsed(text), text);
}

TEST(URL, RefusesWhatCannotBeAnAddress) {
    for (const std::string_view text : {""sv,
                                        " http://h"sv,
                                        "1http://h"sv,
                                        ":x"sv,
                                        "a b:c"sv,
                                        "ht\0tp://h"sv,
                                        "http://h:8a/"sv,
                                        "http://h:-1/"sv,
                                        "http://h:80:90/"sv,
                                        "http://[::1"sv,
                                        "http://[::g]/"sv,
                                        "http://[::1]x/"sv,
                                        "http://[::1]:8x"sv,
                                        "http://[]/"sv,
                                        "http://[1.2.3.4]/"sv,
                                        "http://[::1\0]/"sv,
                                        "http://[::1%25]/"sv,
                                        "http://[::1%25a/b]"sv,
                                        "http://a[b/"sv,
                                        "http://a b/"sv,
                                        "http://a<b/"sv,
                                        "http://a>b/"sv,
                                        R"(http://a"b/)"sv,
                                        R"(http://a\b/)"sv,
                                        "http://a^b/"sv,
                                        "http://a{b/"sv,
                                        "http://a}b/"sv,
                                        "http://a|b/"sv,
                                        "http://a\r\nb/"sv,
                                        "http://a\0b/"sv,
                                        "http://a\x7F/"sv,
                                        "//h:x"sv})
        EXPECT_EQ(parsed(text), "nil") << text;
}

TEST(URL, EncodesWhatMayNotStandInItsPart) {
    const std::pair<std::string_view, const char*> table[] = {
        {"http://h/a b", "http://h/a%20b"},
        {"http://h/é?ü#ß", "http://h/%C3%A9?%C3%BC#%C3%9F"},
        {"http://h/\xFF", "http://h/%FF"},
        {"http://h/%zz%4", "http://h/%25zz%254"},
        {"http://h/\r\nX: y\0z"sv, "http://h/%0D%0AX:%20y%00z"},
        {"http://h/[1]?[2]#[3]#4", "http://h/%5B1%5D?%5B2%5D#%5B3%5D%234"},
        {R"(http://h/<>"\^`{|})", "http://h/%3C%3E%22%5C%5E%60%7B%7C%7D"},
        {R"(http://a b:c\d@h/)", "http://a%20b:c%5Cd@h/"},
        {"http://good@evil@h/", "http://good%40evil@h/"},
        {"http://bücher.example/", "http://b%C3%BCcher.example/"},
        {"a path", "a%20path"},
    };
    for (const auto& [text, expected] : table) EXPECT_EQ(parsed(text), expected);
}

TEST(URL, NamesSchemeHostAndPort) {
    const auto url = *URL::parse("HTTPS://ana@Example.COM/x");
    EXPECT_EQ(url.scheme(), "https");
    EXPECT_EQ(url.host(), "example.com");
    EXPECT_EQ(url.effectivePort(), 443);
    EXPECT_EQ(URL::parse("http://h:/")->effectivePort(), 80);
    EXPECT_EQ(URL::parse("http://h:00443")->effectivePort(), 443);
    EXPECT_EQ(URL::parse("http://h:" + std::string(100'000, '9'))->effectivePort(), 65536);
    EXPECT_EQ(URL::parse("http://[::A]:1/")->host(), "[::a]");
    EXPECT_EQ(URL::parse("x:y")->host(), "");
    EXPECT_EQ(URL::parse("y/z")->scheme(), "");
}

TEST(URL, ComparesOrigins) {
    const auto origin = *URL::parse("https://Host/a");
    for (const char* same : {"https://host/b", "HTTPS://HOST:443", "https://u:p@host:0443/?q"})
        EXPECT_TRUE(origin.hasSameOrigin(*URL::parse(same))) << same;
    for (const char* other : {"http://host/a", "https://host:8443/a", "https://host.example/a",
                              "https://host@h/a", "/a"})
        EXPECT_FALSE(origin.hasSameOrigin(*URL::parse(other))) << other;
}

TEST(URL, TakesLongTextsInItsStride) {
    constexpr std::size_t length = 1U << 20U;
    EXPECT_EQ(parsed("http://h/" + std::string(length, ' ')).size(), 9 + 3 * length);
    EXPECT_EQ(parsed("http://" + std::string(length, '@') + "h/").size(), 10 + 3 * (length - 1));
}

}  // namespace
}  // namespace kivo::platform
