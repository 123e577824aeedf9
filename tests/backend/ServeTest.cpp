#include "backend/FileDescriptor.h"
#include "tests/backend/KivoDev.h"
#include "tests/backend/RawClient.h"
#include "tests/support/TemporaryDirectory.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>
#include <iterator>
#include <sstream>

namespace kivo::tests {
namespace {

using backend::FileDescriptor;
using testing::HasSubstr;

class ServeTest : public testing::Test {
protected:
    struct Ready {
        std::uint16_t port = 0;
        std::string trustFile;
    };

    const std::filesystem::path& folder() const { return folder_.path(); }
    int output() const { return output_.number(); }
    std::string printed() const {
        std::ifstream stream(folder_.path() / "output");
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    static Ready readyOf(const KivoDev& program) {
        Ready ready;
        std::istringstream(program.readyText()) >> ready.port >> ready.trustFile;
        return ready;
    }

private:
    TemporaryDirectory folder_;
    FileDescriptor output_{::open((folder_.path() / "output").c_str(),
                                  O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600),
                           "output"};
};

TEST_F(ServeTest, AnswersOverTlsUntilASignalEndsIt) {
    for (const int signal : {SIGINT, SIGTERM}) {
        KivoDev program({"serve", "--port", "0", "--ready-fd", "3"}, folder(), output());
        const auto ready = readyOf(program);
        RawClient client(ready.port);
        ASSERT_TRUE(client.startTls(ready.trustFile, "localhost"));
        client.send("GET /img/a.png HTTP/1.1\r\n\r\n");
        EXPECT_THAT(client.readTo("\r\n\r\n"), HasSubstr("200 OK"));
        program.signal(signal);
        EXPECT_EQ(program.wait(), 0);
        EXPECT_THAT(printed(),
                    HasSubstr("https://localhost:" + std::to_string(ready.port) + "/\n"));
        EXPECT_THAT(printed(), HasSubstr("SSL_CERT_FILE=" + ready.trustFile + "\n"));
        EXPECT_THAT(printed(), HasSubstr("GET /img/a.png  200  "));
    }
}

TEST_F(ServeTest, EndsThoughNobodyReadsWhatItPrints) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const FileDescriptor unread(ends[0], "pipe");
    const FileDescriptor full(ends[1], "pipe");
    ::fcntl(ends[1], F_SETFL, O_NONBLOCK);
    const std::string filling(4096, '-');
    while (::write(ends[1], filling.data(), filling.size()) > 0) continue;
    ::fcntl(ends[1], F_SETFL, 0);
    KivoDev program({"serve", "--port", "0", "--ready-fd", "3"}, folder(), full.number());
    ASSERT_NE(readyOf(program).port, 0);
    program.signal(SIGINT);
    EXPECT_EQ(program.wait(), 0);
}

TEST_F(ServeTest, SaysWhatToDoAboutAMistake) {
    KivoDev first({"serve", "--port", "0", "--ready-fd", "3"}, folder(), output());
    const auto port = std::to_string(readyOf(first).port);
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"serve", "--port", port}, "port " + port + " is taken"},
        {{"serve", "--port", "65536"}, "65536 not in range"},
        {{"serve", "--ttl", "user=1x"}, "write it like user=15m,merchant=1h"},
        {{"serve", "--ready-fd", "9"}, "descriptor 9 is not open"},
        {{}, "A subcommand is required"},
    };
    for (const auto& [arguments, advice] : cases) {
        KivoDev program(arguments, folder(), output());
        EXPECT_EQ(program.wait(), 1) << advice;
        EXPECT_THAT(printed(), HasSubstr(advice));
    }
}

}  // namespace
}  // namespace kivo::tests
