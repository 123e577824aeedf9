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
#include "backend/run/Browser.h"
#include "backend/tls/AuthorityStore.h"

namespace kivo::backend {

namespace {

constexpr std::chrono::milliseconds exitGrace(150);

std::latch stopRequested(1);
std::atomic<int> exitStatus = EXIT_SUCCESS;

/// Blocks SIGINT, SIGTERM and SIGHUP in this thread and all that it starts, and waits for them on a
/// thread of its own. If a stalled reader of standard output holds up the rest, that thread ends
/// the process.
void startSignalThread() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals] {
        int signal = 0;
        sigwait(&signals, &signal);
        stopRequested.count_down();
        std::this_thread::sleep_for(exitGrace);
        std::_Exit(exitStatus);
    }).detach();
}

void requireOpen(const std::optional<int>& descriptor) {
    if (!descriptor || fcntl(*descriptor, F_GETFD) >= 0) return;
    throw std::invalid_argument(
        "descriptor " + std::to_string(*descriptor) +
        " is not open; open it first, as in: kivo-dev serve --ready-fd 3 3>ready");
}

void writeReadyLines(int descriptor, const Desk& desk, const std::optional<AdminServer>& admin,
                     const std::string& trustFile) {
    auto text = std::to_string(desk.port()) + " " + trustFile + "\n";
    if (admin) text += std::to_string(admin->port()) + "\n";
    FileDescriptor(descriptor, "the ready descriptor").write(text);
}

AdminInfo adminInfo(const std::string& trustFile) {
    return {.hosts = "localhost, 127.0.0.1, ::1",
            .environment = "SSL_CERT_FILE=" + trustFile,
            .trustFile = trustFile};
}

std::string readyText(const Desk& desk, const std::optional<AdminServer>& admin,
                      const std::string& trustFile) {
    auto text = "kivo-dev is ready; Ctrl-C stops it\n  base URL     " + desk.baseUrl() +
                "\n  trust store  SSL_CERT_FILE=" + trustFile + "\n";
    if (!admin) return text;
    const auto port = std::to_string(admin->port());
    return text + "  page         " + admin->pageUrl() +
           "\n  admin        kivo-dev state --admin-port " + port + "\n";
}

std::string faultLines(const Desk& desk) {
    std::string lines;
    for (const auto& active : desk.faults().list())
        lines += "  fault        " + ruleOf(active.fault) + "\n";
    return lines;
}

/// Under --strict a violation makes the exit status a failure. Recorded at once, since a stalled
/// reader of the output may keep serve() from returning.
void recordStatus(const Entry& entry, bool strict) {
    if (strict && !entry.violations.empty()) exitStatus = EXIT_FAILURE;
}

void reportViolations(std::uint64_t violations, bool strict) {
    if (!strict || violations == 0) return;
    printError("kivo-dev: --strict: " + std::to_string(violations) +
               (violations == 1 ? " request" : " requests") +
               " broke the contract; see the lines marked BROKEN\n");
}

}  // namespace

int serve(ServeOptions options) {
    requireOpen(options.readyDescriptor);
    startSignalThread();
    const auto store = openAuthorityStore(authorityFolder());
    auto& deskOptions = options.common.desk;
    const bool strict = options.common.strict;
    deskOptions.identity = store.authority.issue(loopbackHosts());
    deskOptions.onHandshakeFailed = [](const auto& reason) { print(handshakeLine(reason)); };
    Desk desk(deskOptions, [showSecrets = deskOptions.showSecrets, strict](const Entry& entry) {
        recordStatus(entry, strict);
        print(requestLine(entry, showSecrets));
    });
    desk.open();
    std::optional<AdminServer> admin;
    if (options.common.adminPort)
        admin.emplace(desk, *options.common.adminPort, adminInfo(store.trustFile));
    if (options.readyDescriptor)
        writeReadyLines(*options.readyDescriptor, desk, admin, store.trustFile);
    print(readyText(desk, admin, store.trustFile) + faultLines(desk));
    if (options.opensPage && admin) openInBrowser(admin->pageUrl());
    stopRequested.wait();
    admin.reset();
    desk.close();
    reportViolations(desk.tally().violationsEver(), strict);
    return exitStatus;
}

}  // namespace kivo::backend
