#include <fcntl.h>
#include <unistd.h>

#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

#include "backend/base/ExitStatus.h"
#include "backend/base/NoBackend.h"
#include "backend/program/CommandLine.h"
#include "backend/program/Usage.h"
#include "backend/run/ChildProcess.h"

namespace {

/// If one is closed, the next file or connection would take its number and receive our output.
void openStandardStreams() {
    for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number)
        if (fcntl(number, F_GETFD) < 0) open("/dev/null", O_RDWR);
}

int report(const std::string& text, int status) {
    std::cerr << "kivo-dev: " << text << (text.ends_with('\n') ? "" : "\n") << std::flush;
    return status;
}

int runCommand(CLI::App& program, int count, char** arguments) {
    kivo::backend::Command selected;
    kivo::backend::describeCommandLine(program, selected);
    program.parse(count, arguments);
    return selected();
}

}  // namespace

int main(int count, char** arguments) {
    namespace backend = kivo::backend;
    openStandardStreams();
    CLI::App program("A development backend on this machine for applications with Kivo");
    try {
        return runCommand(program, count, arguments);
    } catch (const CLI::Success& request) {
        return program.exit(request);  // Prints the help or the version.
    } catch (const CLI::ParseError& error) {
        return report(backend::usageErrorFrom(error, program).what(), backend::exitStatus::usage);
    } catch (const std::invalid_argument& mistake) {
        return report(mistake.what(), backend::exitStatus::usage);
    } catch (const backend::CannotStart& error) {
        return report(error.what(), error.status());
    } catch (const backend::NoBackend& error) {
        return report(error.what(), backend::exitStatus::noBackend);
    } catch (const std::exception& error) {
        return report(error.what(), backend::exitStatus::failure);
    }
}
