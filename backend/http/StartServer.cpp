#include "backend/http/StartServer.h"

#include <system_error>
#include <utility>

#include "backend/base/NoBackend.h"

namespace kivo::backend {

namespace {

std::string bindError(const std::system_error& error, const std::string& port,
                      const std::string& option) {
    if (error.code() == std::errc::permission_denied)
        return "port " + port + " needs privileges; choose one above 1023 with " + option + " N";
    if (error.code() != std::errc::address_in_use) return error.what();
    return "port " + port + " is already in use, perhaps by another kivo-dev; stop that one, or " +
           "choose another port with " + option + " N (0 picks a free one)";
}

}  // namespace

std::unique_ptr<Server> startServer(ServerOptions options, const std::string& portOption) {
    const auto port = std::to_string(options.port);
    try {
        return std::make_unique<Server>(std::move(options));
    } catch (const std::system_error& error) {
        throw NoBackend(bindError(error, port, portOption));
    }
}

}  // namespace kivo::backend
