#include <limits>
#include <memory>

#include "backend/admin/AdminPort.h"
#include "backend/program/Commands.h"
#include "backend/run/Serve.h"

namespace kivo::backend {

namespace {

constexpr std::uint16_t defaultPort = 8443;

/// A free port means that another backend may be running, so the admin port must be free too.
void chooseAdminPort(const CLI::App& command, CommonOptions& options) {
    if (command.count("--admin-port") > 0) return;
    options.adminPort = options.desk.port == 0 ? 0 : defaultAdminPort;
}

}  // namespace

void addServe(CLI::App& program, Command& selected) {
    auto* command =
        program.add_subcommand("serve", "Answers the SDK over HTTPS on loopback until Ctrl-C");
    const auto options = std::make_shared<ServeOptions>();
    options->common.desk.port = defaultPort;
    addCommonOptions(*command, options->common);
    command
        ->add_option("--ready-fd", options->readyDescriptor,
                     "Descriptor to which three lines are written once the backend listens: "
                     "\"PORT TRUST-FILE\", the admin port or \"off\", and the trust file for "
                     "programs that use it as their proxy")
        ->check(numberFrom(3, std::numeric_limits<int>::max()))
        ->type_name("N");
    command->add_flag("--open", options->opensPage, "Opens the inspector page in your browser");
    command->callback([command, options, &selected] {
        chooseAdminPort(*command, options->common);
        selected = [options] { return serve(*options); };
    });
}

}  // namespace kivo::backend
