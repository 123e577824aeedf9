#pragma once

#include <memory>
#include <string>

#include "backend/http/Server.h"

namespace kivo::backend {

/// Starts a server on a port that the user sets with a command-line option, such as "--port".
/// Throws NoBackend, with a message for the user that names the option, if the port cannot
/// be bound.
std::unique_ptr<Server> startServer(ServerOptions options, const std::string& portOption);

}  // namespace kivo::backend
