#include <memory>
#include <stdexcept>
#include <string>

#include "backend/admin/AdminCommands.h"
#include "backend/admin/AdminPort.h"
#include "backend/base/Duration.h"
#include "backend/faults/FaultKinds.h"
#include "backend/program/Commands.h"

namespace kivo::backend {

namespace {

/// Where the options and arguments are stored; each command uses some of them.
struct AdminArguments {
    std::uint16_t port = defaultAdminPort;
    std::string word;
    std::vector<std::string> words;
    std::string within = "5s";
    command::RequestsOptions requests;

    AdminClient backend() const { return AdminClient(port); }
};
using Arguments = std::shared_ptr<AdminArguments>;

/// Adds a command that talks to a running backend.
template <typename Run>
CLI::App* add(CLI::App& parent, const char* name, const char* help, const Arguments& arguments,
              Command& selected, Run run) {
    auto* command = parent.add_subcommand(name, help);
    command->add_option("--admin-port", arguments->port, "The admin port of the running backend")
        ->envname(adminPortVariable)
        ->check(numberFrom(1, 65535))
        ->type_name("N")
        ->capture_default_str();
    command->callback([arguments, &selected, run] {
        selected = [arguments, run] {
            run(*arguments);
            return EXIT_SUCCESS;
        };
    });
    return command;
}

void addFaultCommands(CLI::App& program, const Arguments& arguments, Command& selected) {
    auto* fault = program.add_subcommand("fault", "Makes requests fail on purpose");
    fault->require_subcommand(1);
    fault->footer("Kinds:\n" + describeFaultKinds());
    add(*fault, "list", "Lists the active faults", arguments, selected,
        [](const auto& given) { command::listFaults(given.backend()); });
    add(*fault, "add", "Adds a fault, as in user/unset:401:times=1", arguments, selected,
        [](const auto& given) { command::addFault(given.backend(), given.word); })
        ->add_option("RULE", arguments->word, "ENDPOINT:KIND[=ARG][:times=N][:p=0.3]")
        ->required();
    add(*fault, "clear", "Removes a fault, or all of them if no rule is given", arguments, selected,
        [](const auto& given) { command::clearFaults(given.backend(), given.word); })
        ->add_option("RULE", arguments->word, "As \"fault list\" shows it");
}

void addStateCommands(CLI::App& program, const Arguments& arguments, Command& selected) {
    add(program, "expire", "Expires tokens now", arguments, selected,
        [](const auto& given) { command::expire(given.backend(), given.word); })
        ->add_option("KIND", arguments->word, "user, merchant or all")
        ->required();
    add(program, "state", "Shows sessions, faults, images and totals", arguments, selected,
        [](const auto& given) { command::showState(given.backend()); });
    add(program, "reset", "Clears sessions, tokens, faults, images, requests and totals", arguments,
        selected, [](const auto& given) { command::reset(given.backend()); });
    auto* requests =
        add(program, "requests", "Shows the newest requests", arguments, selected,
            [](const auto& given) { command::showRequests(given.backend(), given.requests); });
    requests->add_flag("--follow", arguments->requests.follow, "Keep printing new requests");
    requests->add_flag("--json", arguments->requests.json, "As JSON, with headers and bodies");
    add(program, "push", "Prints a notification whose image this backend serves", arguments,
        selected, [](const auto& given) { command::push(given.backend(), given.word); })
        ->add_option("--image-file", arguments->word, "The image file")
        ->required();
}

std::chrono::milliseconds durationIn(const std::string& text) {
    if (const auto duration = parseDuration(text)) return *duration;
    throw std::invalid_argument("--within takes a time like 5s or 200ms, not \"" + text + "\"");
}

void addExpect(CLI::App& program, const Arguments& arguments, Command& selected) {
    auto* expect = add(program, "expect", "Fails unless a matching request arrives; for scripts",
                       arguments, selected, [](const auto&) {});
    expect->add_option("WHAT", arguments->words, "'ENDPOINT [KEY=VALUE]... [status=N]'")
        ->required();
    expect->add_option("--within", arguments->within, "How long to wait")->capture_default_str();
    expect->callback([arguments, &selected] {
        selected = [arguments] {
            return command::expect(arguments->backend(), arguments->words,
                                   durationIn(arguments->within));
        };
    });
}

}  // namespace

void addAdminCommands(CLI::App& program, Command& selected) {
    const auto arguments = std::make_shared<AdminArguments>();
    addFaultCommands(program, arguments, selected);
    addStateCommands(program, arguments, selected);
    addExpect(program, arguments, selected);
    auto* authority = program.add_subcommand("ca", "The certificate authority of serve");
    authority->require_subcommand(1);
    authority->add_subcommand("path", "Prints the path of the file that clients must trust")
        ->callback([&selected] {
            selected = [] {
                command::showAuthorityPath();
                return EXIT_SUCCESS;
            };
        });
}

}  // namespace kivo::backend
