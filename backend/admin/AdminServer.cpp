#include "backend/admin/AdminServer.h"

#include <cstddef>
#include <utility>

#include "backend/admin/Admin.h"
#include "backend/admin/AdminPort.h"
#include "backend/desk/Desk.h"
#include "backend/http/StartServer.h"
#include "backend/service/Envelope.h"

namespace kivo::backend {

namespace {

constexpr std::size_t connectionLimit = 64;

std::string fullReply() {
    auto reply = refusal(503, std::to_string(connectionLimit) +
                                  " admin connections are open, and that is the limit; close some "
                                  "inspector pages, or end commands that follow");
    reply.headers.push_back({.name = "Server", .value = adminServerName});
    return wireText(reply, {.method = "GET"}, false);
}

ServerOptions serverOptions(AdminContext& context, std::uint16_t port) {
    return {.port = port,
            .handler = [&context](const Request& request) { return adminReply(context, request); },
            .tunnelPolicy = [](const std::string&) { return TunnelPolicy::refuse; },
            .onlyOwnUser = true,
            .whenFull = fullReply(),
            .limits = {.bodyBytes = Images::largest, .connections = connectionLimit}};
}

}  // namespace

AdminServer::AdminServer(Desk& desk, std::uint16_t port, AdminInfo info)
    : context_{.desk = desk, .info = std::move(info)},
      server_(startServer(serverOptions(context_, port), "--admin-port")) {
    waker_->attach(server_.get());
    desk.journal().observe([waker = waker_](const Entry&) { waker->wake(); });
}

AdminServer::~AdminServer() { waker_->attach(nullptr); }

}  // namespace kivo::backend
