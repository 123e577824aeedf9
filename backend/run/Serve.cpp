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
#include <utility>

#include "backend/admin/AdminServer.h"
#include "backend/base/FileDescriptor.h"
#include "backend/base/SignalSet.h"
#include "backend/base/Terminal.h"
#include "backend/journal/LineColours.h"
#include "backend/journal/RequestLine.h"
#include "backend/journal/Summary.h"
#include "backend/run/Browser.h"
#include "backend/run/Guardian.h"
#include "backend/run/Output.h"
#include "backend/run/ProxyRole.h"
#include "backend/run/RunFolder.h"
#include "backend/tls/AuthorityStore.h"

namespace kivo::backend {

namespace {

std::latch stopRequested(1);
std::atomic<int> exitStatus = EXIT_SUCCESS;

const sigset_t& endingSignals() {
    static const sigset_t signals = signalSet({SIGINT, SIGTERM, SIGHUP});
    return signals;
}

/// Waits for those signals on a thread of its own. If a stalled reader of the output holds up the
/// rest, that thread ends the process.
void startSignalThread() {
    std::thread([] {
        int signal = 0;
        sigwait(&endingSignals(), &signal);
        stopRequested.count_down();
        std::this_thread::sleep_for(Output::exitGrace);
        std::_Exit(exitStatus);
    }).detach();
}

void requireOpen(const std::optional<int>& descriptor) {
    if (!descriptor || fcntl(*descriptor, F_GETFD) >= 0) return;
    throw std::invalid_argument(
        "descriptor " + std::to_string(*descriptor) +
        " is not open; open it first, as in: kivo-dev serve --ready-fd 3 3>ready");
}

/// Records at once that under --strict a violation makes the exit status a failure, since a stalled
/// reader of the output may keep serve() from returning.
void recordStatus(const Entry& entry, bool strict) {
    if (strict && !entry.violations.empty()) exitStatus = EXIT_FAILURE;
}

/// One backend, from its parts to its verdict.
class Serving {
public:
    Serving(ServeOptions options, const RunFolder& folder);

    int untilStopped();

private:
    DeskOptions deskOptions();
    void writeReadyLines() const;
    std::string readyText() const;
    std::string faultLines() const;
    void reportViolations() const;

    const ServeOptions options_;
    const StoredAuthority store_ = openAuthorityStore(authorityFolder());
    Output output_;
    const ProxyRole proxy_;
    Desk desk_;
    std::optional<AdminServer> admin_;
};

Serving::Serving(ServeOptions options, const RunFolder& folder)
    : options_(std::move(options)),
      proxy_(options_.common, folder, store_.authority.certificate(),
             [this](const auto& line) { output_.show(line); }),
      desk_(deskOptions(), [this](const Entry& entry) {
          recordStatus(entry, options_.common.strict);
          output_.show(forOutput(requestLine(entry, options_.common.desk.showSecrets)));
      }) {
    desk_.open();
    if (options_.common.adminPort)
        admin_.emplace(desk_, *options_.common.adminPort, proxy_.adminInfo(desk_.port()));
}

DeskOptions Serving::deskOptions() {
    auto desk = options_.common.desk;
    desk.identity = store_.authority.issue(loopbackHosts());
    desk.proxyIdentity = proxy_.identity();
    proxy_.direct(desk);
    desk.onHandshakeFailed = [this](const auto& reason) {
        output_.show(forOutput(handshakeLine(reason)));
    };
    return desk;
}

int Serving::untilStopped() {
    if (options_.readyDescriptor) writeReadyLines();
    output_.show(readyText() + faultLines());
    if (options_.opensPage && admin_) openInBrowser(admin_->pageUrl());
    stopRequested.wait();
    admin_.reset();
    desk_.close();
    output_.finish();
    reportViolations();
    return exitStatus;
}

void Serving::writeReadyLines() const {
    const auto admin = admin_ ? std::to_string(admin_->port()) : "off";
    FileDescriptor(*options_.readyDescriptor, "the ready descriptor")
        .write(std::to_string(desk_.port()) + " " + store_.trustFile.string() + "\n" + admin +
               "\n" + proxy_.trustFile() + "\n");
}

std::string Serving::readyText() const {
    const auto info = proxy_.adminInfo(desk_.port());
    auto text = "kivo-dev is ready; Ctrl-C stops it\n  base URL     " + desk_.baseUrl() +
                "\n  trust store  SSL_CERT_FILE=" + store_.trustFile.string() +
                "\n  as a proxy   " + info.environment + "\n  answers for  " + info.hosts + "\n";
    if (!admin_) return text;
    return text + "  page         " + admin_->pageUrl() +
           "\n  admin        kivo-dev state --admin-port " + std::to_string(admin_->port()) + "\n";
}

std::string Serving::faultLines() const {
    std::string lines;
    for (const auto& active : desk_.faults().list())
        lines += "  fault        " + ruleOf(active.fault) + "\n";
    return lines;
}

void Serving::reportViolations() const {
    const auto violations = desk_.tally().violationsEver();
    if (!options_.common.strict || violations == 0) return;
    printError("kivo-dev: --strict: " + std::to_string(violations) +
               (violations == 1 ? " request" : " requests") +
               " broke the contract; see the lines marked BROKEN\n");
}

}  // namespace

int serve(ServeOptions options) {
    requireOpen(options.readyDescriptor);
    pthread_sigmask(SIG_BLOCK, &endingSignals(), nullptr);
    const RunFolder folder;
    const Guardian guardian(folder.path());
    startSignalThread();
    return Serving(std::move(options), folder).untilStopped();
}

}  // namespace kivo::backend
