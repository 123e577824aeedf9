#pragma once

#include <cstdint>
#include <memory>

#include "backend/http/Server.h"

namespace kivo::backend {

class Desk;

/// Serves the admin requests of a running backend, over plain HTTP on loopback. The desk must
/// outlive it.
class AdminServer {
public:
    /// Listens when it returns; port 0 picks a free one. Throws std::runtime_error, with a message
    /// for the user, if the port cannot be bound.
    AdminServer(Desk& desk, std::uint16_t port);

    std::uint16_t port() const { return server_->port(); }

private:
    std::unique_ptr<Server> server_;
};

}  // namespace kivo::backend
