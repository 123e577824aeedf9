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

/// What the commands' options and arguments are read into; each command uses some.
struct AdminArguments {
    std::uint16_t port = usualAdminPort;
    std::string word;
    std::vector<std::string> words;
    std::string within = "5s";
    command::RequestsOptions requests;

    AdminClient backend() const { return AdminClient(port); }
};
using Arguments = std::shared_ptr<AdminArguments>;

/// Adds a command that speaks to a running backend.
template <typename Perform>
CLI::App* add(CLI::App& parent, const char* name, const char* help, const Arguments& arguments,
              Action& action, Perform perform) {
    auto* command = parent.add_subcommand(name, help);
    command->add_option("--admin-port", arguments->port, "Where the backend listens for commands")
        ->envname(adminPortVariable)
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    command->callback([arguments, &action, perform] {
        action = [arguments, perform] {
            perform(*arguments);
            return EXIT_SUCCESS;
        };
    });
    return command;
}

void addFaultCommands(CLI::App& program, const Arguments& arguments, Action& action) {
    auto* fault = program.add_subcommand("fault", "Lets things go wrong on purpose");
    fault->require_subcommand(1);
    fault->footer("Kinds:\n" + describeFaultKinds());
    add(*fault, "list", "Shows the faults that are on", arguments, action,
        [](const auto& given) { command::listFaults(given.backend()); });
    add(*fault, "add", "Adds one, as in user/unset:401:times=1", arguments, action,
        [](const auto& given) { command::addFault(given.backend(), given.word); })
        ->add_option("RULE", arguments->word, "ENDPOINT:KIND[=ARG][:times=N][:p=0.3]")
        ->required();
    add(*fault, "clear", "Removes one, or all without a rule", arguments, action,
        [](const auto& given) { command::clearFaults(given.backend(), given.word); })
        ->add_option("RULE", arguments->word, "As fault list shows it");
}

void addStateCommands(CLI::App& program, const Arguments& arguments, Action& action) {
    add(program, "expire", "Lets tokens expire now", arguments, action,
        [](const auto& given) { command::expire(given.backend(), given.word); })
        ->add_option("KIND", arguments->word, "user, merchant or all")
        ->required();
    add(program, "state", "Shows sessions, faults, images and totals", arguments, action,
        [](const auto& given) { command::showState(given.backend()); });
    add(program, "reset", "Forgets all that was", arguments, action,
        [](const auto& given) { command::reset(given.backend()); });
    auto* requests =
        add(program, "requests", "Shows the newest requests", arguments, action,
            [](const auto& given) { command::showRequests(given.backend(), given.requests); });
    requests->add_flag("--follow", arguments->requests.follow, "Go on with those that come");
    requests->add_flag("--json", arguments->requests.json, "With headers and bodies, as JSON");
    add(program, "push", "Prints a notification whose image this backend serves", arguments, action,
        [](const auto& given) { command::push(given.backend(), given.word); })
        ->add_option("--image-file", arguments->word, "The picture")
        ->required();
}

std::chrono::milliseconds durationIn(const std::string& text) {
    if (const auto duration = parseDuration(text)) return *duration;
    throw std::invalid_argument("--within takes a time like 5s or 200ms, not \"" + text + "\"");
}

void addExpect(CLI::App& program, const Arguments& arguments, Action& action) {
    auto* expect = add(program, "expect", "Fails unless such a request comes, for scripts",
                       arguments, action, [](const auto&) {});
    expect->add_option("WHAT", arguments->words, "'ENDPOINT [KEY=VALUE]... [status=N]'")
        ->required();
    expect->add_option("--within", arguments->within, "How long to wait")->capture_default_str();
    expect->callback([arguments, &action] {
        action = [arguments] {
            return command::expect(arguments->backend(), arguments->words,
                                   durationIn(arguments->within));
        };
    });
}

}  // namespace

void addAdminCommands(CLI::App& program, Action& action) {
    const auto arguments = std::make_shared<AdminArguments>();
    addFaultCommands(program, arguments, action);
    addStateCommands(program, arguments, action);
    addExpect(program, arguments, action);
    auto* authority = program.add_subcommand("ca", "The certificate authority of serve");
    authority->require_subcommand(1);
    authority->add_subcommand("path", "Prints the file that clients are to trust")
        ->callback([&action] {
            action = [] {
                command::showAuthorityPath();
                return EXIT_SUCCESS;
            };
        });
}

}  // namespace kivo::backend
