#include <memory>
#include <stdexcept>
#include <vector>

#include "backend/program/Commands.h"
#include "backend/run/Run.h"

namespace kivo::backend {

namespace {

/// `reports` must live as long as the command.
void addReportOption(CLI::App& command, std::vector<ReportWriter>& reports) {
    command
        .add_option_function<std::string>(
            "--report", [&reports](const auto& file) { reports.emplace_back(file); },
            "Write a report at the end; .json, .har or .xml (JUnit) chooses the format; may be "
            "repeated")
        ->trigger_on_parse()
        ->type_name("FILE");
}

}  // namespace

void addRun(CLI::App& program, Command& selected) {
    auto* command = program.add_subcommand(
        "run",
        "Runs a program with this backend in place of the one at its base URL, as in: "
        "kivo-dev run -- ./app ARGS");
    const auto options = std::make_shared<RunOptions>();
    options->common.adminPort = 0;
    addCommonOptions(*command, options->common);
    command->add_flag("--quiet", options->quiet,
                      "Leave the program's output and terminal as they are, and print nothing");
    command->add_option("--log", options->log, "Write the request lines into this file")
        ->type_name("FILE");
    addReportOption(*command, options->reports);
    command->add_flag("--fresh", options->fresh,
                      "Give the program an empty state folder of its own (XDG_STATE_HOME and "
                      "XDG_DATA_HOME), removed afterwards");
    command->add_option("program", options->command, "The program and its arguments, after --");
    command->allow_extras();
    command->parse_complete_callback([command] {
        if (command->remaining_size() > 0)
            throw std::invalid_argument("run has no option " + command->remaining().front() +
                                        "; options for the program go after --, as in: "
                                        "kivo-dev run -- ./app ARGS");
    });
    command->callback([options, &selected] {
        if (options->command.empty())
            throw std::invalid_argument(
                "the program is missing; write: kivo-dev run -- ./app ARGS");
        selected = [options] { return run(*options); };
    });
}

}  // namespace kivo::backend
