#include "backend/run/Serve.h"

#include <fcntl.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <latch>
#include <stdexcept>
#include <string>
#include <thread>

#include "backend/admin/AdminServer.h"
#include "backend/base/FileDescriptor.h"
#include "backend/base/Terminal.h"
#include "backend/journal/RequestLine.h"
#include "backend/journal/Summary.h"
#include "backend/tls/AuthorityStore.h"

namespace kivo::backend {

namespace {

constexpr std::chrono::milliseconds patienceAtTheEnd(150);

std::latch ended(1);
std::atomic<int> exitStatus = EXIT_SUCCESS;

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
        std::_Exit(exitStatus);
    }).detach();
}

void requireOpen(const std::optional<int>& descriptor) {
    if (!descriptor || fcntl(*descriptor, F_GETFD) >= 0) return;
    throw std::runtime_error(
        "descriptor " + std::to_string(*descriptor) +
        " is not open; open it first, as in: kivo-dev serve --ready-fd 3 3>ready");
}

void tellReady(int descriptor, const Desk& desk, const std::optional<AdminServer>& admin,
               const std::string& trustFile) {
    auto text = std::to_string(desk.port()) + " " + trustFile + "\n";
    if (admin) text += std::to_string(admin->port()) + "\n";
    FileDescriptor(descriptor, "the ready descriptor").write(text);
}

std::string readyText(const Desk& desk, const std::optional<AdminServer>& admin,
                      const std::string& trustFile) {
    auto text = "kivo-dev is ready; Ctrl-C ends it\n  base URL     " + desk.baseUrl() +
                "\n  trust store  SSL_CERT_FILE=" + trustFile + "\n";
    if (!admin) return text;
    const auto port = std::to_string(admin->port());
    return text + "  admin        kivo-dev state --admin-port " + port + "\n";
}

std::string faultLines(const Desk& desk) {
    std::string lines;
    for (const auto& active : desk.faults().list())
        lines += "  fault        " + ruleOf(active.fault) + "\n";
    return lines;
}

/// Requests that broke the contract are a failure to the strict. Known at once: whoever reads the
/// output may keep the end from coming to it.
void note(const Entry& entry, bool strict) {
    if (strict && !entry.violations.empty()) exitStatus = EXIT_FAILURE;
}

void judge(std::uint64_t violations, bool strict) {
    if (!strict || violations == 0) return;
    printError("kivo-dev: --strict: " + std::to_string(violations) +
               (violations == 1 ? " request" : " requests") +
               " broke the contract; see the lines with BROKEN\n");
}

}  // namespace

int serve(ServeOptions options) {
    requireOpen(options.readyDescriptor);
    watchForTheEnd();
    const auto store = openAuthorityStore(authorityFolder());
    auto& [deskOptions, adminPort, strict] = options.common;
    deskOptions.identity = store.authority.issue(loopbackHosts());
    deskOptions.handshakeFailed = [](const auto& reason) { print(handshakeLine(reason)); };
    Desk desk(deskOptions,
              [showSecrets = deskOptions.showSecrets, strict = strict](const Entry& entry) {
                  note(entry, strict);
                  print(requestLine(entry, showSecrets));
              });
    desk.open();
    std::optional<AdminServer> admin;
    if (adminPort) admin.emplace(desk, *adminPort);
    if (options.readyDescriptor) tellReady(*options.readyDescriptor, desk, admin, store.trustFile);
    print(readyText(desk, admin, store.trustFile) + faultLines(desk));
    ended.wait();
    admin.reset();
    desk.close();
    judge(desk.tally().violationsEver(), strict);
    return exitStatus;
}

}  // namespace kivo::backend
