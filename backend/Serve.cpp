#include "backend/Serve.h"

#include "backend/AuthorityStore.h"
#include "backend/FileDescriptor.h"
#include "backend/Journal.h"
#include "backend/RequestLine.h"
#include "backend/Server.h"
#include "backend/Service.h"

#include <fcntl.h>
#include <pthread.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <latch>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

namespace kivo::backend {
namespace {

constexpr std::chrono::milliseconds patienceAtTheEnd(150);

std::latch ended(1);

/// Blocks the signals that end the backend, in this thread and all that it starts, and lets one
/// thread wait for them. That thread ends the process itself if whoever reads the standard output
/// has stopped and holds up the rest.
void watchForTheEnd() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals] {
        int signal = 0;
        sigwait(&signals, &signal);
        ended.count_down();
        std::this_thread::sleep_for(patienceAtTheEnd);
        std::_Exit(EXIT_SUCCESS);
    }).detach();
}

void print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

void requireOpen(const std::optional<int>& descriptor) {
    if (!descriptor || ::fcntl(*descriptor, F_GETFD) >= 0) return;
    throw std::runtime_error(
        "descriptor " + std::to_string(*descriptor) +
        " is not open; open it first, as in: kivo-dev serve --ready-fd 3 3>ready");
}

std::unique_ptr<Server> listen(ServerOptions options) {
    const auto port = std::to_string(options.port);
    try {
        return std::make_unique<Server>(std::move(options));
    } catch (const std::system_error& error) {
        if (error.code() == std::errc::permission_denied) {
            throw std::runtime_error("port " + port +
                                     " needs privileges; choose one above 1023 with --port N");
        }
        if (error.code() != std::errc::address_in_use) throw;
        throw std::runtime_error(
            "port " + port +
            " is taken, perhaps by another kivo-dev; end that one, or choose a port "
            "with --port N (0 takes a free one)");
    }
}

void announce(const Server& server, const ServeOptions& options, const std::string& trustFile) {
    const auto port = std::to_string(server.port());
    if (options.readyDescriptor) {
        const FileDescriptor ready(*options.readyDescriptor, "the ready descriptor");
        ready.write(port + " " + trustFile + "\n");
    }
    print("kivo-dev is ready; Ctrl-C ends it\n  base URL     https://localhost:" + port +
          "/\n  trust store  SSL_CERT_FILE=" + trustFile + "\n");
}

}  // namespace

void serve(const ServeOptions& options) {
    requireOpen(options.readyDescriptor);
    watchForTheEnd();
    const auto store = openAuthorityStore(authorityFolder());
    Service service(options.lifetimes);
    Journal journal;
    journal.observe([](const Exchange& exchange) { print(requestLine(exchange)); });
    const auto server =
        listen({.port = options.port,
                .identity = store.authority.issue(loopbackHosts()),
                .handler = [&](const Request& request) { return service.answer(request); },
                .finished = [&](const Exchange& exchange) { journal.record(exchange); }});
    announce(*server, options, store.trustFile.string());
    ended.wait();
    server->stop();
}

}  // namespace kivo::backend
