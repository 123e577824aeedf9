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

/// One pipe from the program, made into lines.
class Followed {
public:
    Followed(const FileDescriptor& pipe, LineSplitter::Consumer consumer)
        : pipe_(pipe.number()), lines_(std::move(consumer)) {}

    /// poll(2) passes over a pipe that has ended.
    pollfd question() const { return {.fd = open_ ? pipe_ : -1, .events = POLLIN, .revents = 0}; }

    /// Takes what there is at this moment and no more: the program may never stop printing.
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

/// Shows the program's lines until it ends, then what it left in the pipes. Something that it
/// started and left behind may hold them open for ever.
void follow(const ChildProcess& child, const FileDescriptor& ended) {
    Followed output(child.output(),
                    [](std::string_view line) { print(std::string(fromApp).append(line) + "\n"); });
    Followed errors(child.errors(), [](std::string_view line) {
        printError(std::string(fromAppErrors).append(line) + "\n");
    });
    pollfd end{.fd = ended.number(), .events = POLLIN, .revents = 0};
    while (end.revents == 0) {
        std::array questions{output.question(), errors.question(), end};
        if (poll(questions.data(), questions.size(), -1) < 0) continue;
        output.drain();
        errors.drain();
        end = questions.back();
    }
    output.finish();
    errors.finish();
}

std::string readyText(const Desk& desk, const std::optional<AdminServer>& admin,
                      const Interception& interception, const std::string& program) {
    auto text = "kivo-dev runs " + program + "; https goes through it\n  answered here  " +
                interception.description() + "\n  base URL       " + desk.baseUrl() + "\n";
    if (!admin) return text;
    return text + "  admin          kivo-dev state --admin-port " + std::to_string(admin->port()) +
           "\n";
}

int verdict(const Tally& tally, int childStatus, bool strict) {
    print("kivo-dev: the program ended with status " + std::to_string(childStatus) + "\n" +
          summaryOf(tally.totals()));
    const bool broken = strict && tally.violationsEver() > 0;
    return broken && childStatus == 0 ? EXIT_FAILURE : childStatus;
}

/// Leads the program to its hosts, but to those that are answered here, and says so once for each:
/// it may be the one that was meant.
class Passages {
public:
    explicit Passages(Interception interception) : interception_(std::move(interception)) {}

    Passage operator()(const std::string& target) {
        if (interception_.covers(target)) return Passage::here;
        if (told_.size() < mostTold && told_.insert(target).second)
            print(std::string(fromBackend) + "leads on to " + target + advice(target) + "\n");
        return Passage::through;
    }

private:
    static std::string advice(const std::string& target) {
        const auto host = hostAndPort(target);
        if (!host || isAddress(host->host)) return "";
        return "; to have it answered here: --host " + target;
    }

    static constexpr std::size_t mostTold = 100;

    Interception interception_;
    std::set<std::string> told_;
};

void prepare(DeskOptions& desk, const Authority& authority, const Interception& interception) {
    desk.identity = identityFor(authority, interception.names());
    desk.passage = Passages(interception);
    desk.handshakeFailed = [](const auto& reason) { print(fromBackend + handshakeLine(reason)); };
}

/// From the program's start to its end.
int supervise(Desk& desk, const RunOptions& options, const Route& route,
              const GuardedSignals& signals, const std::string& box) {
    const ChildProcess child(options.command, childEnvironment(ownEnvironment(), route),
                             signals.maskBefore());
    print(box);
    const auto tidyUp = [path = route.trustFile] { unlink(path.c_str()); };
    auto& watch = *new ChildWatch(child.id(), signals, tidyUp);
    follow(child, watch.ended());
    desk.settle();
    const int status = verdict(desk.tally(), watch.status(), options.common.strict);
    watch.endWith(status);
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
    std::optional<AdminServer> admin;
    if (options.common.adminPort) admin.emplace(desk, *options.common.adminPort);
    const TrustFile trust(trustedAlready() + authority.certificate());
    keepFromPrograms(inherited);
    const Route route{.port = desk.port(),
                      .trustFile = trust.path(),
                      .adminPort = admin ? std::optional(admin->port()) : std::nullopt};
    return supervise(desk, options, route, signals,
                     readyText(desk, admin, interception, options.command.front()));
}

}  // namespace kivo::backend
