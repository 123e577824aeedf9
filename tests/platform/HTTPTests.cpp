#include <dlfcn.h>
#include <errno.h>
#include <gmock/gmock.h>

#include <cstdarg>
#include <fstream>
#include <set>
#include <tuple>

#include "kivo/platform/http/HTTPRedirect.h"
#include "kivo/platform/http/HTTPTransfer.h"
#include "tests/platform/Load.h"
#include "tests/support/ScriptedBackend.h"
#include "tests/support/TemporaryDirectory.h"

#undef curl_easy_setopt

namespace {

CURLoption unknownOption = CURLOPT_LASTENTRY;

}  // namespace

/// libcurl's own but for the option that it is not to know.
extern "C" CURLcode curl_easy_setopt(CURL* easy, CURLoption option, ...) {
    if (option == unknownOption) return CURLE_UNKNOWN_OPTION;
    static const auto own =
        reinterpret_cast<decltype(&curl_easy_setopt)>(dlsym(RTLD_NEXT, "curl_easy_setopt"));
    std::va_list values;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wvarargs"  // The signature is libcurl's own.
    va_start(values, option);
#pragma GCC diagnostic pop
    const bool isOffset = option >= CURLOPTTYPE_OFF_T && option < CURLOPTTYPE_BLOB;
    const CURLcode code = isOffset ? own(easy, option, va_arg(values, curl_off_t))
                                   : own(easy, option, va_arg(values, void*));
    va_end(values);
    return code;
}

namespace kivo::tests {

namespace {

using namespace platform;
using namespace std::literals;
using Table = std::vector<std::pair<std::string, std::string>>;

/// The shared session against a backend over real sockets that says "fine" unless told otherwise,
/// the only one that is trusted. The platform reads that once: every test is a process of its own.
class HTTPTest : public testing::Test {
protected:
    HTTPTest() {
        setenv("SSL_CERT_FILE", backend_.trustFile().c_str(), 1);
        setenv("SSL_CERT_DIR", "/nowhere", 1);
        setenv("no_proxy", "*", 1);
        backend_.answer("", Reply::json(200, "fine"));
    }
    ~HTTPTest() override { settle(); }

    static Load begin(const URLRequest& what) { return Load(URLSession::shared(), what).resume(); }
    static std::string get(std::string_view url) { return begin(requestFor(url)).outcome(); }

    /// A reply begins to hang some time after its request was seen.
    std::string outcomeOnceReleased(Load& load) {
        do backend_.release();
        while (!load.hasEnded(std::chrono::milliseconds(5)));
        return load.outcome();
    }

    /// The client's connections that requests have come over.
    std::set<std::string> connections() {
        std::set<std::string> found;
        for (const auto& request : backend_.requests())
            found.insert(request.header("x-came-over").empty() ? std::to_string(request.connection)
                                                               : request.header("x-came-over"));
        return found;
    }

    /// What two loads share stays in use until one is cut off: then it goes, and so does what is
    /// idle.
    void expectReuse(const std::string& server, std::size_t ofTwoLoads) {
        const auto expectConnections = [&](std::size_t count) {
            for (int round = 0; round < 2; ++round) EXPECT_EQ(get(server), "200 fine");
            EXPECT_EQ(connections().size(), count);
        };
        backend_.answer("slow", hanging());
        auto slow = requestFor(server + "slow");
        Load one = begin(slow);
        Load other = begin(slow);
        ASSERT_TRUE(backend_.awaitRequests("slow", 2));
        for (Load* load : {&one, &other}) EXPECT_EQ(outcomeOnceReleased(*load), "200 ");
        Load cancelled = begin(slow);
        ASSERT_TRUE(backend_.awaitRequests("slow", 3));
        expectConnections(ofTwoLoads);
        cancelled.cancel();
        EXPECT_EQ(cancelled.outcome(), "-999");
        expectConnections(ofTwoLoads + 1);
        slow.setTimeoutInterval(std::chrono::milliseconds(200));
        EXPECT_EQ(begin(slow).outcome(), "-1001");
        expectConnections(ofTwoLoads + 2);
    }
    TemporaryDirectory folder_;
    ScriptedBackend backend_{folder_.path()};
};

TEST_F(HTTPTest, ARequestGoesOutAsGivenAndNothingIsInvented) {
    const std::string none = "Content-Length:0\n\n", four = "Content-Length:4\n\nbody";
    const Table table = {{"GET", "\n"}, {"HEAD", "\n"}, {"oDD-1", "\n"}, {"POST", none},
                         {"PUT", none}, {"GET", four},  {"post", four}};
    const std::string smuggler = "1\nx-smuggled: 1", ended = {'1', '\0'};
    const Table headers = {{"x-Joined", "one"}, {"X-JOINED", "two"}, {"x-empty", ""},
                           {"x-blank", " \t"},  {"x-bad name", "1"}, {"x-bad", "1\r1"},
                           {"x-bad", smuggler}, {"x-bad", ended}};
    for (const auto& [start, end] : table) {
        auto request = requestFor(backend_.url("a/../b?q=%20"), start);
        if (end.ends_with("body")) request.setHTTPBody("body");
        for (const auto& [name, value] : headers) request.addValue(value, name);
        EXPECT_EQ(begin(request).outcome(), start == "HEAD" ? "200 " : "200 fine");
        const auto sent = backend_.last("");
        std::string text = sent.method + " " + sent.target + "\n";
        for (const auto& header : sent.headers) text += header.name + ":" + header.value + "\n";
        EXPECT_EQ(text + "\n" + sent.body,
                  start + " /a/../b?q=%20\nHost:localhost:" + std::to_string(backend_.port()) +
                      "\nUser-Agent:" + program_invocation_short_name +
                      "\nAccept:*/*\nx-Joined:one,two\nx-empty:\nx-blank:\n" + end);
    }
}

TEST(HTTPRedirectTest, CodeMethodOriginAndBurdenDecide) {
    const char *near = "https://h:443/b", *far = "https://o/b";
    const std::tuple<int, const char*, std::string, const char*, const char*> table[] = {
        {301, "POST", "bh", near, "GET -h"},  {302, "POST", "b-", near, "GET --"},
        {302, "PUT", "b-", near, "PUT b-"},   {303, "PUT", "b-", near, "GET --"},
        {303, "HEAD", "--", near, "HEAD --"}, {307, "POST", "bh", near, "POST bh"},
        {308, "POST", "b-", near, "POST b-"}, {307, "GET", "--", far, "GET --"},
        {303, "POST", "b-", far, "GET --"},   {307, "POST", "b-", far, "none"},
        {308, "POST", "--", far, "none"},     {302, "GET", "-h", far, "none"},
        {302, "GET", "b-", far, "none"},      {200, "GET", "--", near, "none"},
        {300, "GET", "--", near, "none"},     {304, "GET", "--", near, "none"}};
    for (const auto& [status, method, burden, location, expected] : table) {
        auto request = requestFor("https://h/a", method);
        if (burden[0] == 'b') request.setHTTPBody("body");
        if (burden[1] == 'h') request.addValue("1", "x-secret");
        const auto next = redirectedRequest(request, status, location);
        const auto body = next && next->httpBody() ? " b" : " -";
        const auto header = next && !next->headerFields().empty() ? "h" : "-";
        EXPECT_EQ(next ? next->httpMethod() + body + header : "none", expected) << status << method;
    }
}

TEST_F(HTTPTest, TwentyRedirectsAreFollowedAndNoSecretGoesToAStranger) {
    backend_.answer("loop", redirectReply(302, "?again"));
    EXPECT_EQ(get(backend_.url("loop")), "-1007");
    EXPECT_EQ(backend_.requests("loop").size(), 21U);
    const auto stranger = backend_.sibling();
    stranger->answer("", Reply::json(200, "fine"));
    auto secret = requestFor(backend_.url("away"));
    secret.addValue("s", "x-secret");
    const std::string other = stranger->url(), plain = backend_.plainUrl(), file = "file:///etc";
    const Table table = {
        {other, "200 fine"}, {plain, "200 fine"}, {file, "-1002"}, {"https://[oops/", "302 "}};
    for (const auto& [location, bare] : table) {
        backend_.answer("away", redirectReply(302, location));
        EXPECT_EQ(get(backend_.url("away")), bare) << location;
        EXPECT_EQ(begin(secret).outcome(), "302 ") << location;
    }
    EXPECT_EQ(stranger->requests().size(), 1U);
}

TEST_F(HTTPTest, WhatGoesWrongHasItsCodeAndHandsOverNothing) {
    backend_.answer("bad", rawReply("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz"));
    backend_.answer("garbage", rawReply("this is not HTTP\r\n\r\n"));
    const ScriptedBackend distrusted(TemporaryDirectory().path());
    const auto nameless = "https://" + std::string(64, 'x') + ".invalid/";
    const Table urls = {{backend_.url("bad"), "-1005"},
                        {backend_.plainUrl("bad"), "-1005"},
                        {backend_.url("garbage"), "-1011"},
                        {backend_.sibling()->url(), "-1004"},
                        {nameless, "-1003"},
                        {"a", "-1002"},
                        {distrusted.url(), "-1202"}};
    for (const auto& [url, code] : urls) EXPECT_EQ(get(url), code) << url;
    const std::string continued = "HTTP/1.1 100 Continue\r\n\r\n";
    for (const std::string& version : {"HTTP/1.0 "s, "HTTP/1.1 "s, continued + "HTTP/1.1 "})
        for (const char* status : {"200 OK", "401 No", "302 Found\r\nLocation: /bad"}) {
            backend_.answer("cut", rawReply(version + status + "\r\nContent-Le"));
            EXPECT_EQ(get(backend_.url("cut")) + get(backend_.plainUrl("cut")), "-1005-1005");
        }
    for (const char* method : {"", "GET / HTTP/1.1\r\nx: y", "ÄÖ"})
        EXPECT_EQ(begin(requestFor(backend_.url("unsent"), method)).outcome(), "-1000") << method;
    EXPECT_EQ(backend_.requests("unsent").size(), 0U);
}

/// The first is set for each handle, the second for each request.
TEST_F(HTTPTest, AnOptionThatLibcurlDoesNotKnowFailsTheLoadAndIsNamed) {
    for (const CURLoption option : {CURLOPT_QUICK_EXIT, CURLOPT_PROXY}) {
        unknownOption = option;
        EXPECT_EQ(get(backend_.url()), "-1011");
    }
    CURL* easy = curl_easy_init();
    unknownOption = CURLOPT_PATH_AS_IS;
    EXPECT_THAT([&] { HTTPTransfer::prepare(easy); },
                testing::ThrowsMessage<URLError>(testing::HasSubstr(" refuses option 234: ")));
    curl_easy_cleanup(easy);
    EXPECT_EQ(backend_.requests().size(), 0U);
    unknownOption = CURLOPT_LASTENTRY;
    EXPECT_EQ(get(backend_.url()), "200 fine");
}

TEST_F(HTTPTest, SixConnectionsServeAHostAndALoadThatWaitsItsTurnCanBeCancelled) {
    backend_.answer("slow", hanging());
    std::vector<Load> loads;
    const auto beginUntil = [&](std::size_t count) {
        while (loads.size() < count) loads.push_back(begin(requestFor(backend_.url("slow"))));
    };
    beginUntil(20);
    for (auto& load : loads) EXPECT_EQ(outcomeOnceReleased(load), "200 ");
    EXPECT_EQ(connections().size(), 6U);
    beginUntil(26);
    ASSERT_TRUE(backend_.awaitRequests("slow", 26));
    Load waiting = begin(requestFor(backend_.url("never")));
    Load next = begin(requestFor(backend_.url("next")));
    passTheLoop();
    waiting.cancel();
    loads.back().cancel();
    EXPECT_EQ(next.outcome(), "200 fine");
    EXPECT_EQ(backend_.requests("never").size(), 0U);
    for (auto& load : loads) load.cancel();
}

TEST_F(HTTPTest, ConnectionsAreReusedUntilALoadIsCutOff) { expectReuse(backend_.url(), 2); }

/// nginx, as a foreign server, hands requests on to the backend and says what they came over. It
/// shakes hands as localhost alone, and goes to the background once it listens.
TEST_F(HTTPTest, HTTP2LoadsShareAConnectionUntilOneIsCutOff) {
    const auto authority = backend::Authority::make();
    const auto identity = authority.issue({"localhost"});
    std::ofstream(backend_.trustFile(), std::ios::app) << authority.certificate();
    std::ofstream(folder_.path() / "pem") << identity.certificate << identity.privateKey;
    const auto port = std::to_string(backend_.sibling()->port());
    const auto server = "server { listen 127.0.0.1:" + port + " ssl http2; ";
    std::ofstream(folder_.path() / "nginx.conf")
        << "pid pid; events {} http { access_log off; client_body_temp_path a; proxy_temp_path b;"
        << "fastcgi_temp_path c; uwsgi_temp_path d; scgi_temp_path e; ssl_certificate pem;"
        << "ssl_certificate_key pem;" << server << "ssl_reject_handshake on; }" << server
        << "server_name localhost; location / { proxy_pass " << backend_.proxyUrl()
        << "; proxy_set_header x-came-over '$server_protocol $connection'; } } }";
    const auto nginx = "/usr/sbin/nginx -e log -c nginx.conf -p " + folder_.path().string();
    ASSERT_EQ(std::system(nginx.c_str()), 0) << "install nginx-light";
    expectReuse("https://localhost:" + port + "/", 1);
    EXPECT_THAT(connections(), testing::Each(testing::StartsWith("HTTP/2.0 ")));
    EXPECT_EQ(get("https://127.0.0.1:" + port), "-1200") << "a refused handshake";
    EXPECT_EQ(std::system((nginx + " -s stop").c_str()), 0);
}

}  // namespace

}  // namespace kivo::tests
