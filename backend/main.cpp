#include "backend/Serve.h"

#include <CLI/CLI.hpp>

#include <exception>
#include <iostream>

namespace {

using kivo::backend::ServeOptions;

void describeServe(CLI::App& program, ServeOptions& options) {
    auto* command =
        program.add_subcommand("serve", "Answers the SDK over HTTPS on loopback until Ctrl-C");
    command->add_option("--port", options.port, "Port to listen on; 0 takes a free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    command
        ->add_option_function<std::string>(
            "--ttl",
            [&](const std::string& text) {
                options.lifetimes = kivo::backend::parseLifetimes(text);
            },
            "Time to live of tokens, as in user=15m,merchant=1h")
        ->default_str("user=15m,merchant=1h");
    command
        ->add_option("--ready-fd", options.readyDescriptor,
                     "Descriptor that gets one line, \"PORT TRUST-FILE\", once the backend listens")
        ->check(CLI::NonNegativeNumber);
}

int complain(const std::exception& error) {
    std::cerr << "kivo-dev: " << error.what() << std::endl;
    return EXIT_FAILURE;
}

}  // namespace

int main(int count, char** arguments) {
    CLI::App program("kivo-dev, the development backend of Kivo");
    program.require_subcommand(1);
    ServeOptions options;
    describeServe(program, options);
    try {
        program.parse(count, arguments);
        kivo::backend::serve(options);
        return EXIT_SUCCESS;
    } catch (const CLI::ParseError& error) {
        return program.exit(error) == EXIT_SUCCESS ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& error) {
        return complain(error);
    }
}
