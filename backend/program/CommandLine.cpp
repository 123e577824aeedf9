#include "backend/program/CommandLine.h"

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "backend/base/ExitStatus.h"
#include "backend/program/Pages.h"
#include "backend/program/Usage.h"

namespace kivo::backend {

namespace {

CLI::App& commandNamed(CLI::App& program, const std::vector<std::string>& words) {
    auto* command = &program;
    for (const auto& word : words) {
        const auto found = command->get_subcommands(
            [&](const CLI::App* each) { return each->get_name() == word; });
        if (found.empty()) throw unknownWord(*command, word);
        command = found.front();
    }
    return *command;
}

void addHelp(CLI::App& program, Command& selected) {
    auto* command = program.add_subcommand("help", "Shows the help of a command");
    const auto words = std::make_shared<std::vector<std::string>>();
    command->add_option("COMMAND", *words, "As in: kivo-dev help fault add");
    command->callback([&program, &selected, words] {
        selected = [&program, words] {
            const auto& named = commandNamed(program, *words);
            const auto path = words->empty() ? "" : " " + pathOf(named);
            std::cout << program.get_formatter()->make_help(&named, "kivo-dev" + path,
                                                            CLI::AppFormatMode::Normal);
            return exitStatus::success;
        };
    });
}

/// For the build, which installs what this writes.
void addPages(CLI::App& program, Command& selected) {
    auto* command = program.add_subcommand("pages", "Writes the man page and bash completion");
    command->group("");
    const auto folder = std::make_shared<std::string>();
    command->add_option("FOLDER", *folder, "An existing folder")->required();
    command->callback([&program, &selected, folder] {
        selected = [&program, folder] {
            writePages(program, *folder);
            return exitStatus::success;
        };
    });
}

}  // namespace

void describeCommandLine(CLI::App& program, Command& selected) {
    program.name("kivo-dev");
    program.require_subcommand(1);
    program.set_version_flag("--version", "kivo-dev " KIVO_DEV_VERSION, "Print the version");
    program.footer(
        "Exit status: 0 success; 1 an expectation was not met, or --strict found a broken contract;"
        "\n2 wrong usage; 3 no backend. run ends with the status of its program, with 126 or 127 "
        "if "
        "it\ncannot be started, and with 128 plus the signal number if a signal ended it.\n");
    addServe(program, selected);
    addRun(program, selected);
    addAdminCommands(program, selected);
    addHelp(program, selected);
    addPages(program, selected);
}

}  // namespace kivo::backend
