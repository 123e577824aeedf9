#include "backend/admin/AdminServer.h"

#include <cstddef>

#include "backend/admin/Admin.h"
#include "backend/desk/Desk.h"
#include "backend/http/StartServer.h"

namespace kivo::backend {

namespace {

constexpr std::size_t connectionLimit = 64;

ServerOptions serverOptions(Desk& desk, std::uint16_t port) {
    return {.port = port,
            .handler = [&desk](const Request& request) { return adminReply(desk, request); },
            .tunnelPolicy = [](const std::string&) { return TunnelPolicy::refuse; },
            .limits = {.bodyBytes = Images::largest, .connections = connectionLimit}};
}

}  // namespace

AdminServer::AdminServer(Desk& desk, std::uint16_t port)
    : server_(startServer(serverOptions(desk, port), "--admin-port")) {}

}  // namespace kivo::backend
