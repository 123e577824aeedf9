#include "backend/run/Run.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "backend/admin/AdminServer.h"
#include "backend/base/Terminal.h"
#include "backend/journal/RequestLine.h"
#include "backend/journal/Summary.h"
#include "backend/run/ChildEnvironment.h"
#include "backend/run/ChildProcess.h"
#include "backend/run/ChildWatch.h"
#include "backend/run/Descriptors.h"
#include "backend/run/Interception.h"
#include "backend/run/LineSplitter.h"
#include "backend/tls/Authority.h"
#include "backend/tls/TrustFile.h"

namespace kivo::backend {

namespace {

constexpr const char* fromApp = "app     | ";
constexpr const char* fromAppErrors = "app err | ";
constexpr const char* fromBackend = "backend | ";

/// One of the program's pipes, split into lines.
class OutputPipe {
public:
    OutputPipe(const FileDescriptor& pipe, LineSplitter::Callback callback)
        : pipe_(pipe.number()), lines_(std::move(callback)) {}

    /// poll(2) skips a pipe that has ended.
    pollfd pollEntry() const { return {.fd = open_ ? pipe_ : -1, .events = POLLIN, .revents = 0}; }

    /// Reads only what is available now: the program may never stop printing.
    void drain() {
        int waiting = 0;
        ioctl(pipe_, FIONREAD, &waiting);
        std::string piece(static_cast<std::size_t>(std::max(waiting, 1)), '\0');
        const auto size = open_ ? read(pipe_, piece.data(), piece.size()) : 0;
        if (size < 0) return;
        open_ = size > 0;
        lines_.add(std::string_view(piece).substr(0, static_cast<std::size_t>(size)));
    }

    void finish() {
        drain();
        lines_.finish();
    }

private:
    const int pipe_;
    LineSplitter lines_;
    bool open_ = true;
};

Interception interceptionOf(const RunOptions& options) {
    Interception interception;
    for (const auto& url : options.baseUrls) interception.addBaseUrl(url);
    for (const auto& host : options.hosts) interception.addHost(host);
    return interception;
}

Identity identityFor(const Authority& authority, std::vector<std::string> names) {
    std::ranges::copy(loopbackHosts(), std::back_inserter(names));
    return authority.issue(names);
}

/// Prints the program's lines until it ends, then what is left in the pipes. It does not wait for
/// their end, since a process that the program left behind may hold them open.
void follow(const ChildProcess& child, const FileDescriptor& ended) {
    OutputPipe output(child.output(), [](std::string_view line) {
        print(std::string(fromApp).append(line) + "\n");
    });
    OutputPipe errors(child.errors(), [](std::string_view line) {
        printError(std::string(fromAppErrors).append(line) + "\n");
    });
    pollfd end{.fd = ended.number(), .events = POLLIN, .revents = 0};
    while (end.revents == 0) {
        std::array entries{output.pollEntry(), errors.pollEntry(), end};
        if (poll(entries.data(), entries.size(), -1) < 0) continue;
        output.drain();
        errors.drain();
        end = entries.back();
    }
    output.finish();
    errors.finish();
}

std::string readyText(const Desk& desk, const std::optional<AdminServer>& admin,
                      const Interception& interception, const std::string& program) {
    auto text = "kivo-dev runs " + program +
                "; its https goes through this backend\n  answered here  " +
                interception.description() + "\n  base URL       " + desk.baseUrl() + "\n";
    if (!admin) return text;
    return text + "  page           " + admin->pageUrl() +
           "\n  admin          kivo-dev state --admin-port " + std::to_string(admin->port()) + "\n";
}

AdminInfo adminInfo(const Desk& desk, const Interception& interception,
                    const std::string& trustFile) {
    return {.hosts = interception.description(),
            .environment = "https_proxy=http://127.0.0.1:" + std::to_string(desk.port()) +
                           " SSL_CERT_FILE=" + trustFile,
            .trustFile = trustFile};
}

int verdict(const Tally& tally, int childStatus, bool strict) {
    print("kivo-dev: the program ended with status " + std::to_string(childStatus) + "\n" +
          summaryOf(tally.totals()));
    const bool broken = strict && tally.violationsEver() > 0;
    return broken && childStatus == 0 ? EXIT_FAILURE : childStatus;
}

/// Intercepts the covered hosts and forwards to all others. Each of those is reported once, since
/// it may be one that was meant to be intercepted.
class TunnelRouter {
public:
    explicit TunnelRouter(Interception interception) : interception_(std::move(interception)) {}

    TunnelPolicy operator()(const std::string& target) {
        if (interception_.covers(target)) return TunnelPolicy::intercept;
        if (logged_.size() < logLimit && logged_.insert(target).second)
            print(std::string(fromBackend) + "forwards to " + target + advice(target) + "\n");
        return TunnelPolicy::forward;
    }

private:
    static std::string advice(const std::string& target) {
        const auto host = hostAndPort(target);
        if (!host || isAddress(host->host)) return "";
        return "; to answer it here: --host " + target;
    }

    static constexpr std::size_t logLimit = 100;

    Interception interception_;
    std::set<std::string> logged_;
};

void prepare(DeskOptions& desk, const Authority& authority, const Interception& interception) {
    desk.identity = identityFor(authority, interception.names());
    desk.tunnelPolicy = TunnelRouter(interception);
    desk.onHandshakeFailed = [](const auto& reason) { print(fromBackend + handshakeLine(reason)); };
}

/// Runs the program from start to end.
int supervise(Desk& desk, const RunOptions& options, const BackendAddress& backend,
              const GuardedSignals& signals, const std::string& readyMessage) {
    const ChildProcess child(options.command, childEnvironment(ownEnvironment(), backend),
                             signals.maskBefore());
    print(readyMessage);
    const auto tidyUp = [path = backend.trustFile] { unlink(path.c_str()); };
    auto& watch = *new ChildWatch(child.id(), signals, tidyUp);
    follow(child, watch.ended());
    desk.awaitDisconnects();
    const int status = verdict(desk.tally(), watch.status(), options.common.strict);
    watch.exitWith(status);
    return status;
}

}  // namespace

int run(RunOptions options) {
    const auto inherited = openDescriptors();
    const GuardedSignals signals;
    const auto interception = interceptionOf(options);
    const auto authority = Authority::make(interception.names());
    prepare(options.common.desk, authority, interception);
    Desk desk(options.common.desk,
              [showSecrets = options.common.desk.showSecrets](const auto& entry) {
                  print(fromBackend + requestLine(entry, showSecrets));
              });
    desk.open();
    const TrustFile trust(trustedAlready() + authority.certificate());
    std::optional<AdminServer> admin;
    if (options.common.adminPort)
        admin.emplace(desk, *options.common.adminPort, adminInfo(desk, interception, trust.path()));
    keepFromPrograms(inherited);
    const BackendAddress address{.port = desk.port(),
                                 .trustFile = trust.path(),
                                 .adminPort = admin ? std::optional(admin->port()) : std::nullopt};
    return supervise(desk, options, address, signals,
                     readyText(desk, admin, interception, options.command.front()));
}

}  // namespace kivo::backend
