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

constexpr const char* exitStatuses =
    R"(Exit status:
  0    success
  1    an expectation was not met, --strict found a broken contract, or a command failed
  2    wrong usage
  3    no backend is running, or none could be started
  126  run: the program cannot be executed
  127  run: there is no such program
  128  run: plus the number of the signal that ended the program; otherwise its own status
)";

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

/// The parser would take --strict=no for --strict, and names the type of an argument behind its
/// name.
void refineOptions(CLI::App& command) {
    for (auto* option : command.get_options()) {
        if (option->get_items_expected_max() == 0) option->disable_flag_override();
        if (option->get_positional()) option->type_name("");
    }
    for (auto* each : command.get_subcommands({})) {
        if (!each->get_group().empty()) each->group("Commands");
        refineOptions(*each);
    }
}

void useOwnWords(CLI::FormatterBase& formatter) {
    formatter.label("Positionals", "Arguments");
    formatter.label("SUBCOMMAND", "COMMAND");
    formatter.label("REQUIRED", "(required)");
    formatter.label("Env", "or");
    formatter.label("Excludes", "not with");
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
    program.footer(exitStatuses);
    addServe(program, selected);
    addRun(program, selected);
    addAdminCommands(program, selected);
    addHelp(program, selected);
    addPages(program, selected);
    refineOptions(program);
    useOwnWords(*program.get_formatter());
}

}  // namespace kivo::backend
