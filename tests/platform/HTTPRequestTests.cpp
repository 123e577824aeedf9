#include <errno.h>
#include <gmock/gmock.h>

#include "kivo/platform/HTTPRedirect.h"
#include "tests/platform/HTTPTest.h"

namespace kivo::tests {

namespace {

using namespace platform;
using testing::ElementsAre;
using testing::IsEmpty;

class HTTPRequestTest : public HTTPTest {
protected:
    HTTPRequestTest() { backend().answer("", jsonReply(200, "fine")); }
};

TEST_F(HTTPRequestTest, MethodsGoOutAsSpelledAndBodiesWithTheirLength) {
    struct Row {
        const char* method;
        std::optional<Data> body;
        std::vector<std::string> contentLength;
    };
    const std::vector<Row> rows = {
        {"GET", {}, {}},     {"GET", "body", {"4"}},    {"POST", {}, {"0"}},
        {"POST", "", {"0"}}, {"PUT", {}, {"0"}},        {"PUT", Data("a\0b", 3), {"3"}},
        {"DELETE", {}, {}},  {"DELETE", "body", {"4"}}, {"HEAD", {}, {}},
        {"post", {}, {}},    {"oDD-mEthod_1", {}, {}},  {"oDD", "body", {"4"}},
    };
    for (const auto& row : rows) {
        auto request = this->request("path", row.method);
        request.setHTTPBody(row.body);
        const auto arrived = sent(request);
        EXPECT_EQ(arrived.method, row.method);
        EXPECT_EQ(arrived.body, row.body.value_or(""));
        EXPECT_EQ(arrived.values("Content-Length"), row.contentLength) << row.method;
        EXPECT_THAT(arrived.values("Content-Type"), IsEmpty()) << row.method;
        EXPECT_THAT(arrived.values("Transfer-Encoding"), IsEmpty()) << row.method;
    }
    EXPECT_EQ(load(request("path", "HEAD")).data, "");
}

TEST_F(HTTPRequestTest, HeadersGoOutAsGivenAndNoneIsInvented) {
    auto request = this->request("a/../b?q=%20", "POST");
    request.addValue("one", "x-Joined");
    request.addValue("two", "X-JOINED");
    request.addValue("", "x-empty");
    request.addValue(" \t", "x-blank");
    request.addValue("text; with: signs", "x-plain");
    for (const auto value : {"a\rb", "a\nb", "a\r\nx-smuggled: 1"})
        request.addValue(value, "x-broken");
    request.addValue(std::string_view("a\0b", 3), "x-broken");
    request.addValue("1", "x-bad name");
    request.addValue("1", "x-bad\r\nx-smuggled");
    const auto arrived = sent(request);

    EXPECT_EQ(arrived.target, "/a/../b?q=%20");
    EXPECT_THAT(arrived.values("x-joined"), ElementsAre("one,two"));
    EXPECT_THAT(arrived.values("x-empty"), ElementsAre(""));
    EXPECT_THAT(arrived.values("x-blank"), ElementsAre("")) << "a blank value is an empty one";
    std::vector<std::string> names;
    for (const auto& header : arrived.headers) names.push_back(header.name);
    EXPECT_THAT(names,
                testing::UnorderedElementsAre("Host", "User-Agent", "Accept", "x-Joined", "x-empty",
                                              "x-blank", "x-plain", "Content-Length"));
    EXPECT_THAT(arrived.values("Accept"), ElementsAre("*/*"));
    EXPECT_THAT(arrived.values("User-Agent"), ElementsAre(program_invocation_short_name));
}

TEST_F(HTTPRequestTest, ALargeBodyIsSentWithoutAskingFirst) {
    std::atomic<std::size_t> received = 0;
    std::atomic<bool> asked = false;
    backend::Server server({.identity = backend::Authority::make().issue({"localhost"}),
                            .handler =
                                [&](const Request& request) {
                                    received = request.body.size();
                                    asked = !request.values("Expect").empty();
                                    return jsonReply(200, "");
                                },
                            .limits = {.bodyBytes = 8U << 20U}});
    auto request = requestFor("http://127.0.0.1:" + std::to_string(server.port()));
    request.setHTTPMethod("POST");
    request.setHTTPBody(Data(4U << 20U, 'x'));
    EXPECT_EQ(load(request).status(), 200);
    EXPECT_EQ(received, 4U << 20U);
    EXPECT_FALSE(asked);
}

/// "METHOD url", with " +body" and " +header" for what it carries; "answer" for no request.
std::string told(const std::optional<URLRequest>& request) {
    if (!request) return "answer";
    return request->httpMethod() + " " + request->url().absoluteString() +
           (request->httpBody() ? " +body" : "") +
           (request->headerFields().empty() ? "" : " +header");
}

TEST(HTTPRedirectTest, CodeMethodOriginAndBurdenDecide) {
    struct Row {
        int status;
        const char* method;
        const char* burden;  // b: a body, h: a header
        const char* location;
        const char* expected;
    };
    const char* near = "https://h:443/b";
    const char* far = "https://other/b";
    const std::vector<Row> rows = {
        {301, "POST", "bh", near, "GET https://h:443/b +header"},
        {302, "POST", "b", near, "GET https://h:443/b"},
        {302, "PUT", "b", near, "PUT https://h:443/b +body"},
        {303, "PUT", "b", near, "GET https://h:443/b"},
        {303, "HEAD", "", near, "HEAD https://h:443/b"},
        {307, "POST", "bh", near, "POST https://h:443/b +body +header"},
        {308, "PUT", "b", near, "PUT https://h:443/b +body"},
        {307, "GET", "", far, "GET https://other/b"},
        {303, "POST", "b", far, "GET https://other/b"},  // Bare once its body is gone.
        {307, "POST", "b", far, "answer"},
        {308, "POST", "", far, "answer"},
        {302, "GET", "h", far, "answer"},
        {302, "GET", "b", far, "answer"},
        {302, "HEAD", "", far, "answer"},
        {302, "GET", "h", "https://h:8443/b", "answer"},
        {302, "GET", "h", "http://h/b", "answer"},
        {302, "GET", "h", "https://h.other/b", "answer"},
        {302, "GET", "h", "https://H/b", "GET https://H/b +header"},
        {302, "GET", "", "", "answer"},
        {200, "GET", "", near, "answer"},
        {300, "GET", "", near, "answer"},
        {304, "GET", "", near, "answer"},
        {305, "GET", "", near, "answer"},
    };
    for (const auto& row : rows) {
        const std::string_view burden = row.burden;
        auto request = requestFor("https://h/a");
        request.setHTTPMethod(row.method);
        if (burden.find('b') != burden.npos) request.setHTTPBody("body");
        if (burden.find('h') != burden.npos) request.addValue("1", "x-secret");
        EXPECT_EQ(told(redirectedRequest(request, row.status, row.location)), row.expected)
            << row.status << " " << row.method << " " << row.burden << " " << row.location;
    }
}

class HTTPRedirectsTest : public HTTPTest {
protected:
    /// "chain?left=N" redirects N times before it answers.
    HTTPRedirectsTest() {
        backend().answer("chain", [](const Request& request) {
            const int left = std::stoi(request.target.substr(request.target.find('=') + 1));
            if (left == 0) return jsonReply(200, "the end");
            return redirectReply(302, "?left=" + std::to_string(left - 1));
        });
        backend().answer("loop", redirectReply(302, "/loop"));
    }
};

TEST_F(HTTPRedirectsTest, TwentyAreFollowedAndNoMore) {
    const auto outcome = get(backend().url("deep/chain?left=20"));
    EXPECT_EQ(outcome.data, "the end");
    EXPECT_EQ(outcome.response->url().absoluteString(), backend().url("deep/chain?left=0"));
    EXPECT_EQ(get(backend().url("deep/chain?left=21")).errorCode, -1007);
    EXPECT_EQ(get(backend().url("loop")).errorCode, -1007);
    EXPECT_EQ(backend().requests("loop").size(), 21U);
}

TEST_F(HTTPRedirectsTest, OnlyABareGetLeavesItsOrigin) {
    const auto stranger = backend().sibling();
    stranger->answer("there", jsonReply(200, "there"));
    const auto redirected = [&](const std::string& from, const std::string& to,
                                const std::function<void(URLRequest&)>& change) {
        backend().answer("away", redirectReply(302, to));
        auto request = requestFor(from);
        change(request);
        return load(request).status();
    };
    const auto bare = [](URLRequest&) {};
    const auto secret = [](URLRequest& request) { request.addValue("s", "x-secret"); };
    const auto put = [](URLRequest& request) {
        request.setHTTPMethod("PUT");
        request.setHTTPBody("secret");
    };
    EXPECT_EQ(redirected(backend().url("away"), stranger->url("there"), bare), 200);
    EXPECT_EQ(redirected(backend().plainUrl("away"), stranger->url("there"), bare), 200);
    ASSERT_EQ(stranger->requests().size(), 2U);
    EXPECT_EQ(redirected(backend().url("away"), stranger->url("there"), secret), 302);
    EXPECT_EQ(redirected(backend().url("away"), stranger->url("there"), put), 302);
    EXPECT_EQ(stranger->requests().size(), 2U);

    backend().answer("here", jsonReply(200, "here"));
    EXPECT_EQ(redirected(backend().plainUrl("away"), backend().url("here"), secret), 302);
    EXPECT_THAT(backend().requests("here"), IsEmpty());
    EXPECT_EQ(redirected(backend().url("away"), backend().url("here"), secret), 200);
    EXPECT_EQ(backend().last("here").header("x-secret"), "s");
}

TEST_F(HTTPRedirectsTest, OddTargetsHarmNothing) {
    for (const char* location : {"file:///etc/hostname", "ftp://localhost/a"}) {
        backend().answer("odd", redirectReply(302, location));
        EXPECT_EQ(get(backend().url("odd")).errorCode, -1002) << location;
    }
    for (const char* location : {"", "https://[oops/", "http://h:port/"}) {
        backend().answer("odd", redirectReply(302, location));
        EXPECT_EQ(get(backend().url("odd")).status(), 302) << location;
    }
}

}  // namespace

}  // namespace kivo::tests
