#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/support/TemporaryDirectory.h"

namespace kivo::tests {

/// Runs kivo-dev itself, from shell scripts.
class ProgramTest : public testing::Test {
protected:
    /// All that a script prints, on either stream. For it, "kivo" is the program, which is killed
    /// when it takes too long, and "ready" is a pipe.
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

private:
    TemporaryDirectory folder_;
};

}  // namespace kivo::tests
