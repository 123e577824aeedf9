#include <limits>
#include <memory>

#include "backend/admin/AdminPort.h"
#include "backend/program/Commands.h"
#include "backend/run/Serve.h"

namespace kivo::backend {

namespace {

constexpr std::uint16_t usualPort = 8443;

/// Whoever takes any free port means to stand beside another backend.
void chooseAdminPort(const CLI::App& command, CommonOptions& options) {
    if (command.count("--admin-port") > 0) return;
    options.adminPort = options.desk.port == 0 ? 0 : usualAdminPort;
}

}  // namespace

void addServe(CLI::App& program, Action& action) {
    auto* command =
        program.add_subcommand("serve", "Answers the SDK over HTTPS on loopback until Ctrl-C");
    const auto options = std::make_shared<ServeOptions>();
    options->common.desk.port = usualPort;
    addCommonOptions(*command, options->common);
    command
        ->add_option("--ready-fd", options->readyDescriptor,
                     "Descriptor that gets the line \"PORT TRUST-FILE\" once the backend listens, "
                     "then the admin port on a line of its own")
        ->check(CLI::Range(3, std::numeric_limits<int>::max()));
    command->callback([command, options, &action] {
        chooseAdminPort(*command, options->common);
        action = [options] { return serve(*options); };
    });
}

}  // namespace kivo::backend
