#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "backend/admin/AdminContext.h"
#include "backend/base/Mutex.h"
#include "backend/http/Server.h"

namespace kivo::backend {

/// Passes on that there is news, from any thread, as long as the server lives.
class Waker {
public:
    void attach(Server* server) {
        const Lock lock(mutex_);
        server_ = server;
    }

    void wake() {
        const Lock lock(mutex_);
        if (server_) server_->wake();
    }

private:
    Mutex mutex_;
    Server* server_ KIVO_BACKEND_GUARDED_BY(mutex_) = nullptr;
};

/// Serves the admin requests and the inspector page of a running backend, over plain HTTP on
/// loopback. The desk must outlive it.
class AdminServer {
public:
    /// Listens when it returns; port 0 picks a free one. Throws std::runtime_error, with a message
    /// for the user, if the port cannot be bound.
    AdminServer(Desk& desk, std::uint16_t port, AdminInfo info);
    ~AdminServer();

    AdminServer(const AdminServer&) = delete;
    AdminServer& operator=(const AdminServer&) = delete;

    std::uint16_t port() const { return server_->port(); }

    /// The address of the inspector page.
    std::string pageUrl() const { return "http://localhost:" + std::to_string(port()) + "/"; }

private:
    AdminContext context_;
    std::unique_ptr<Server> server_;
    const std::shared_ptr<Waker> waker_ = std::make_shared<Waker>();  // The journal's too.
};

}  // namespace kivo::backend
