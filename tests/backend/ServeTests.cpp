#include "backend/Journal.h"
#include "backend/RequestLine.h"
#include "tests/support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <cstdio>

namespace kivo::tests {
namespace {

using testing::EndsWith;
using testing::MatchesRegex;

class ServeTest : public testing::Test {
protected:
    /// All that a shell script prints, on either stream. For it, "kivo" is the program, which is
    /// killed when it takes too long, and "ready" is a pipe.
    std::string run(const std::string& script) const {
        const auto text =
            "exec 2>&1; cd " + folder_.path().string() + "; mkfifo ready; kivo() {" +
            " XDG_DATA_HOME=$PWD exec timeout -s KILL 20 " KIVO_DEV_PROGRAM " \"$@\"; }\n" + script;
        FILE* output = ::popen(text.c_str(), "re");
        std::string printed;
        for (int next = 0; (next = std::fgetc(output)) != EOF;) printed += static_cast<char>(next);
        ::pclose(output);
        return printed;
    }

private:
    TemporaryDirectory folder_;
};

TEST_F(ServeTest, AnswersOverTlsUntilASignalEndsIt) {
    for (const std::string signal : {"INT", "TERM"}) {
        const auto printed = run(R"(
            kivo serve --port 0 --ready-fd 3 3>ready >log & read -r port trust <ready
            printf 'GET /img/a.png HTTP/1.1\r\nConnection: close\r\n\r\n' |
                timeout 20 openssl s_client -quiet -connect localhost:$port -CAfile $trust \
                    -verify_return_error -verify_hostname localhost
            kill -)" + signal + R"( $!; wait $!; printf "\nstatus %s\n" $?
            sed "s|:$port/|:PORT/|; s|$trust|TRUST|" log)");
        for (const auto* part :
             {"HTTP/1.1 200 OK\r\n", "\nstatus 0\n", "  https://localhost:PORT/\n",
              "SSL_CERT_FILE=TRUST\n", "GET /img/a.png  200  "})
            EXPECT_THAT(printed, testing::HasSubstr(part));
    }
}

TEST_F(ServeTest, EndsThoughNobodyReadsWhatItPrints) {
    EXPECT_EQ(run(R"(
        mkfifo full; exec 4<>full; dd if=/dev/zero of=full bs=4096 oflag=nonblock 2>/dev/null
        kivo serve --port 0 --ready-fd 3 3>ready >&4 2>&4 & read -r port trust <ready
        kill -INT $!; wait $!; echo ${port:+ready} $?)"),
              "ready 0\n");
}

TEST_F(ServeTest, SaysWhatToDoAboutAMistake) {
    const auto printed = run(R"(
        kivo serve --port 0 --ready-fd 3 3>ready >log & read -r port trust <ready
        for arguments in "--port $port" '--port 65536' '--ttl user=1x' '--ready-fd 9'; do
            (kivo serve $arguments 9>&-); echo status $?
        done
        (kivo); echo status $?; kill $!)");
    EXPECT_THAT(printed, MatchesRegex("kivo-dev: port [0-9]+ is taken.* --port N .*\nstatus 1\n"
                                      ".*65536 not in range.*\nstatus 1\n"
                                      ".*write it like user=15m,merchant=1h.*\nstatus 1\n"
                                      ".*descriptor 9 is not open.*\nstatus 1\n"
                                      ".*A subcommand is required.*\nstatus 1\n"));
}

TEST(JournalTest, KeepsTheNewestCutToSizeAndTellsObserversOfAll) {
    backend::Journal journal(2);
    std::string seen;
    journal.observe([&](const auto& exchange) { seen += exchange.request.target; });
    const std::string body(100'000, 'x');
    for (const auto* target : {"/1", "/2", "/3"})
        journal.record({.request = {.target = target, .body = body}, .reply = {.body = "short"}});
    EXPECT_EQ(seen, "/1/2/3");
    ASSERT_EQ(journal.recent().size(), 2);
    const auto [request, reply, duration, delivered] = journal.recent().front();
    EXPECT_EQ(request.target + " " + reply.body, "/2 short");
    EXPECT_EQ(request.body, body.substr(0, 65536) + "… (100000 bytes in all)");
}

TEST(RequestLineTest, ShowsAnExchangeWithoutObeyingIt) {
    EXPECT_THAT(backend::requestLine({.request = {.method = "PUT", .target = "/a\x1b[2J\xC3?b"},
                                      .reply = {.status = 401},
                                      .duration = std::chrono::milliseconds(12),
                                      .delivered = true}),
                EndsWith("  PUT /a?[2J?  401  12 ms\n"));
    EXPECT_THAT(backend::requestLine({.reply = {.status = 400}}),
                EndsWith("  (no HTTP request)  400  0 ms  (not delivered)\n"));
}

}  // namespace
}  // namespace kivo::tests
