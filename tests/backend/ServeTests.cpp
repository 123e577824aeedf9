#include <gmock/gmock.h>

#include "tests/backend/Program.h"

namespace kivo::tests {

namespace {

using testing::MatchesRegex;

using ServeTest = ProgramTest;

TEST_F(ServeTest, EndsThoughNobodyReadsWhatItPrints) {
    EXPECT_EQ(run(R"(
        mkfifo full; exec 4<>full; dd if=/dev/zero of=full bs=4096 oflag=nonblock 2>/dev/null
        for signal in INT TERM; do
            kivo serve --port 0 --ready-fd 3 3>ready >&4 2>&4 & read -r port trust <ready
            kill -$signal $!; wait $!; echo ${port:+ready} $?
        done)"),
              "ready 0\nready 0\n");
}

TEST_F(ServeTest, SaysWhatToDoAboutAMistake) {
    const auto printed = run(R"(
        kivo serve --port 0 --ready-fd 3 3>ready >log & read -r port trust <ready
        for arguments in "--port $port" '--port 65536' '--ttl user=1x' '--ready-fd 9' \
            "--port 0 --admin-port $port" '--fault img:lunch'; do
            (kivo serve $arguments 9>&-); echo status $?
        done
        (kivo); echo status $?; kill $!)");
    EXPECT_THAT(printed,
                MatchesRegex("kivo-dev: port [0-9]+ is already in use.* --port N .*\nstatus 1\n"
                             ".*65536 not in range.*\nstatus 1\n"
                             ".*write it like user=15m,merchant=1h.*\nstatus 1\n"
                             ".*descriptor 9 is not open.*\nstatus 1\n"
                             ".*port [0-9]+ is already in use.* --admin-port N .*\nstatus 1\n"
                             ".*\"lunch\" is no kind of fault.*\nstatus 1\n"
                             ".*A subcommand is required.*\nstatus 1\n"));
}

}  // namespace

}  // namespace kivo::tests
