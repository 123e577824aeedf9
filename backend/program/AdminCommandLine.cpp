#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "backend/admin/AdminCommands.h"
#include "backend/admin/AdminPort.h"
#include "backend/base/Duration.h"
#include "backend/faults/Fault.h"
#include "backend/faults/FaultKinds.h"
#include "backend/program/Commands.h"

namespace kivo::backend {

namespace {

constexpr long most = 1'000'000'000;

/// Where the options and arguments are stored; each command uses some of them.
struct AdminArguments {
    std::uint16_t port = defaultAdminPort;
    std::string word;
    bool json = false;
    std::string within = "5s";
    command::ExpectOptions expect;
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

CLI::Option* addNumber(CLI::App& command, const char* name, std::optional<unsigned>& number,
                       long lowest, long highest, const char* help) {
    return command.add_option(name, number, help)
        ->check(numberFrom(lowest, highest))
        ->type_name("N");
}

void addFaultCommands(CLI::App& program, const Arguments& arguments, Command& selected) {
    auto* fault = program.add_subcommand("fault", "Makes requests fail on purpose");
    fault->require_subcommand(1);
    fault->footer("Kinds:\n" + describeFaultKinds());
    add(*fault, "list", "Lists the active faults", arguments, selected, [](const auto& given) {
        command::listFaults(given.backend(), given.json);
    })->add_flag("--json", arguments->json, "As JSON");
    add(*fault, "add", "Adds a fault, as in user/unset:401:times=1", arguments, selected,
        [](const auto& given) { command::addFault(given.backend(), given.word); })
        ->add_option("RULE", arguments->word, faultForm)
        ->required();
    add(*fault, "clear",
        "Removes a fault, or all of them if no rule is given; requests that hang are answered",
        arguments, selected,
        [](const auto& given) { command::clearFaults(given.backend(), given.word); })
        ->add_option("RULE", arguments->word, "As \"fault list\" shows it");
}

void addStateCommands(CLI::App& program, const Arguments& arguments, Command& selected) {
    add(program, "expire", "Expires tokens now", arguments, selected,
        [](const auto& given) { command::expire(given.backend(), given.word); })
        ->add_option("KIND", arguments->word, "user, merchant or all")
        ->required();
    add(program, "state", "Shows sessions, faults, images and totals", arguments, selected,
        [](const auto& given) { command::showState(given.backend(), given.json); })
        ->add_flag("--json", arguments->json, "As JSON");
    add(program, "reset",
        "Clears sessions, tokens, faults, images, requests and totals, and starts the chances of "
        "--seed anew",
        arguments, selected, [](const auto& given) { command::reset(given.backend()); });
    add(program, "push", "Prints a notification whose image this backend serves", arguments,
        selected, [](const auto& given) { command::push(given.backend(), given.word); })
        ->add_option("--image-file", arguments->word, "The image file")
        ->required();
}

void addRequests(CLI::App& program, const Arguments& arguments, Command& selected) {
    auto* command =
        add(program, "requests", "Shows the newest requests", arguments, selected,
            [](const auto& given) { command::showRequests(given.backend(), given.requests); });
    auto& options = arguments->requests;
    command->add_flag("--follow", options.follow, "Keep printing new requests");
    command->add_flag("--json", options.json,
                      "As JSON, one request a line, with headers and bodies");
    command->add_option("--endpoint", options.endpoint,
                        "Only requests to this endpoint, such as user/unset, or img for images");
    addNumber(*command, "--status", options.status, 100, 599, "Only those with this status");
    command->add_flag("--broken", options.broken, "Only those that broke the contract");
    addNumber(*command, "--limit", options.limit, 1, most, "Only so many, the newest");
}

std::chrono::milliseconds durationIn(const std::string& text) {
    if (const auto duration = parseDuration(text)) return *duration;
    throw std::invalid_argument("--within takes a time like 5s or 200ms, not \"" + text + "\"");
}

void addExpect(CLI::App& program, const Arguments& arguments, Command& selected) {
    auto* expect = add(program, "expect", "Fails unless a matching request arrives; for scripts",
                       arguments, selected, [](const auto&) {});
    auto& options = arguments->expect;
    expect
        ->add_option("WHAT", options.words,
                     "'ENDPOINT [KEY=VALUE]... [status=N]'; several in order: WHAT then WHAT")
        ->required();
    expect->add_option("--within", arguments->within, "How long to wait")
        ->type_name("TIME")
        ->capture_default_str();
    expect
        ->add_option("--after", options.after,
                     "Only requests after the entry of this number, the newest one in \"state\"")
        ->check(numberFrom(0, most))
        ->type_name("N");
    auto* none = expect->add_flag("--none", options.none,
                                  "Fail if a matching request arrives within the whole time");
    addNumber(*expect, "--count", options.count, 1, most,
              "Wait until so many matching requests have arrived, and fail if there are more")
        ->excludes(none);
    expect->callback([arguments, &selected] {
        selected = [arguments] {
            arguments->expect.within = durationIn(arguments->within);
            return command::expect(arguments->backend(), arguments->expect);
        };
    });
}

}  // namespace

void addAdminCommands(CLI::App& program, Command& selected) {
    const auto arguments = std::make_shared<AdminArguments>();
    addFaultCommands(program, arguments, selected);
    addStateCommands(program, arguments, selected);
    addRequests(program, arguments, selected);
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
