#include <fcntl.h>
#include <unistd.h>

#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "backend/program/Commands.h"

namespace {

/// If one is closed, the next file or connection would take its number and receive our output.
void openStandardStreams() {
    for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number)
        if (fcntl(number, F_GETFD) < 0) open("/dev/null", O_RDWR);
}

std::string unknownCommand(const std::vector<std::string>& words) {
    return words.empty() ? "" : ", and \"" + words.front() + "\" is not one";
}

}  // namespace

int main(int count, char** arguments) {
    openStandardStreams();
    CLI::App program("kivo-dev, the development backend of Kivo");
    program.require_subcommand(1);
    kivo::backend::Command selected;
    kivo::backend::addServe(program, selected);
    kivo::backend::addRun(program, selected);
    kivo::backend::addAdminCommands(program, selected);
    try {
        program.parse(count, arguments);
        return selected();
    } catch (const CLI::RequiredError& error) {
        std::cerr << "kivo-dev: " << error.what() << unknownCommand(program.remaining())
                  << "; see: kivo-dev --help, or kivo-dev COMMAND --help\n";
        return EXIT_FAILURE;
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == EXIT_SUCCESS ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& error) {
        const std::string text = error.what();
        std::cerr << "kivo-dev: " << text << (text.ends_with('\n') ? "" : "\n") << std::flush;
        return EXIT_FAILURE;
    }
}
