#pragma once

#include <gmock/gmock.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/TemporaryDirectory.h"

namespace kivo::tests {

/// Shell commands, and a regular expression that occurs in what they print.
struct Step {
    std::string commands;
    std::string prints;
};

/// Runs kivo-dev itself, from shell scripts.
class ProgramTest : public testing::Test {
protected:
    /// Returns all that a script prints, on either stream. In it, "kivo" replaces the shell with
    /// the program, which is killed if it takes too long, and "ready" is a pipe.
    std::string run(const std::string& script) const {
        const auto text =
            "exec 2>&1; cd " + folder_.path().string() + "; mkfifo ready; export TMPDIR=$PWD\n" +
            "unset SSL_CERT_DIR SSL_CERT_FILE; dev=" KIVO_DEV_PROGRAM "\n" +
            "kivo() { XDG_DATA_HOME=$PWD exec timeout -s KILL 20 $dev \"$@\"; }\n" + script;
        FILE* output = popen(text.c_str(), "re");
        std::string printed;
        for (int next = 0; (next = std::fgetc(output)) != EOF;) printed += static_cast<char>(next);
        pclose(output);
        return printed;
    }

    /// Runs the steps in one shell, after a preparation that prints nothing.
    void expectSteps(const std::string& preparation, const std::vector<Step>& steps) const {
        std::string script = preparation;
        for (const auto& step : steps) script += "\nprintf '\\036'\n" + step.commands;
        std::istringstream output(run(script));
        std::string printed;
        std::getline(output, printed, '\x1e');
        EXPECT_EQ(printed, "");
        for (const auto& step : steps) {
            if (!std::getline(output, printed, '\x1e')) printed.clear();
            EXPECT_THAT(printed, testing::ContainsRegex(step.prints)) << step.commands;
        }
    }

private:
    TemporaryDirectory folder_;
};

}  // namespace kivo::tests
