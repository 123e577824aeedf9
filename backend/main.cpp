#include "backend/program/Commands.h"

#include <exception>
#include <iostream>
#include <string>

int main(int count, char** arguments) {
    CLI::App program("kivo-dev, the development backend of Kivo");
    program.require_subcommand(1);
    kivo::backend::Action action;
    kivo::backend::addServe(program, action);
    kivo::backend::addRun(program, action);
    kivo::backend::addAdminCommands(program, action);
    try {
        program.parse(count, arguments);
        return action();
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == EXIT_SUCCESS ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& error) {
        const std::string text = error.what();
        std::cerr << "kivo-dev: " << text << (text.ends_with('\n') ? "" : "\n") << std::flush;
        return EXIT_FAILURE;
    }
}
