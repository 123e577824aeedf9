#include "backend/run/Run.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "backend/admin/AdminServer.h"
#include "backend/base/ExitStatus.h"
#include "backend/base/Terminal.h"
#include "backend/journal/RequestLine.h"
#include "backend/journal/Summary.h"
#include "backend/run/AppOutput.h"
#include "backend/run/Cause.h"
#include "backend/run/ChildEnvironment.h"
#include "backend/run/ChildProcess.h"
#include "backend/run/ChildWatch.h"
#include "backend/run/Descriptors.h"
#include "backend/run/Guardian.h"
#include "backend/run/Interception.h"
#include "backend/run/Narrator.h"
#include "backend/run/RunFolder.h"
#include "backend/run/UpstreamProxies.h"
#include "backend/tls/Authority.h"
#include "backend/tls/TrustedAlready.h"

namespace kivo::backend {

namespace {

using SteadyClock = std::chrono::steady_clock;

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

/// Intercepts the covered hosts and forwards to all others. Each of those is reported once, since
/// it may be one that was meant to be intercepted.
class TunnelRouter {
public:
    TunnelRouter(Interception interception, const Narrator& narrator, Traffic& traffic)
        : interception_(std::move(interception)), narrator_(narrator), traffic_(traffic) {}

    TunnelPolicy operator()(const std::string& target) {
        if (interception_.covers(target)) return TunnelPolicy::intercept;
        ++traffic_.forwarded;
        if (logged_.size() < logLimit && logged_.insert(target).second)
            narrator_.log("forwards to " + printable(target) + advice(target) + "\n");
        return TunnelPolicy::forward;
    }

private:
    static std::string advice(const std::string& target) {
        const auto host = hostAndPort(target);
        if (!host || isAddress(host->host) || !isDnsName(host->host)) return "";
        return "; to answer it here: --host " + target;
    }

    static constexpr std::size_t logLimit = 100;

    Interception interception_;
    const Narrator& narrator_;
    Traffic& traffic_;
    std::set<std::string> logged_;
};

/// One run, from its parts to its verdict.
class ProgramRun {
public:
    ProgramRun(RunOptions options, const RunFolder& folder, const Guardian& guardian,
               const GuardedSignals& signals, const std::set<int>& inherited);

    int supervise();

private:
    DeskOptions deskOptions();
    AdminInfo adminInfo() const;
    ChildOptions childOptions() const;
    std::string readyText() const;
    void follow(ChildProcess& child, const ChildWatch& watch);
    int conclude(const ChildState& state);

    RunOptions options_;
    const RunFolder& folder_;
    const Guardian& guardian_;
    const GuardedSignals& signals_;
    const std::vector<std::string> environment_ = ownEnvironment();
    const Interception interception_;
    const Authority authority_;
    const std::string trustFile_;
    Output output_;
    const Narrator narrator_;
    Traffic traffic_;
    Desk desk_;
    std::optional<AdminServer> admin_;
    SteadyClock::time_point start_;
};

ProgramRun::ProgramRun(RunOptions options, const RunFolder& folder, const Guardian& guardian,
                       const GuardedSignals& signals, const std::set<int>& inherited)
    : options_(std::move(options)),
      folder_(folder),
      guardian_(guardian),
      signals_(signals),
      interception_(interceptionOf(options_)),
      authority_(Authority::make(interception_.names())),
      trustFile_(folder.writeTrustFile(trustedAlready() + authority_.certificate())),
      narrator_(output_, options_.quiet, options_.log),
      desk_(deskOptions(), [this](const Entry& entry) {
          narrator_.log(requestLine(entry, options_.common.desk.showSecrets));
      }) {
    desk_.open();
    if (options_.common.adminPort) admin_.emplace(desk_, *options_.common.adminPort, adminInfo());
    keepFromPrograms(inherited);
}

DeskOptions ProgramRun::deskOptions() {
    auto desk = options_.common.desk;
    desk.identity = identityFor(authority_, interception_.names());
    desk.onlyOwnUser = true;
    desk.tunnelPolicy = TunnelRouter(interception_, narrator_, traffic_);
    desk.upstreamProxy = upstreamProxies(
        environment_, [this](const std::string& warning) { narrator_.log(warning + "\n"); });
    desk.onHandshakeFailed = [this](const std::string& reason) {
        if (!isRejection(reason)) ++traffic_.failedHandshakes;
        narrator_.log(handshakeLine(reason));
    };
    return desk;
}

AdminInfo ProgramRun::adminInfo() const {
    return {.hosts = interception_.description(),
            .environment = "https_proxy=http://127.0.0.1:" + std::to_string(desk_.port()) +
                           " SSL_CERT_FILE=" + trustFile_,
            .trustFile = trustFile_};
}

ChildOptions ProgramRun::childOptions() const {
    BackendAddress backend{.port = desk_.port(), .trustFile = trustFile_};
    if (admin_) backend.adminPort = admin_->port();
    if (options_.fresh) backend.stateFolder = folder_.path();
    backend.isAnsweredHere = [this](const std::string& entry) {
        return interception_.isCoveredBy(entry);
    };
    return {.command = options_.command,
            .environment = childEnvironment(environment_, backend),
            .mask = signals_.maskBefore(),
            .hasPipes = !options_.quiet};
}

std::string ProgramRun::readyText() const {
    auto text = "kivo-dev runs " + options_.command.front() +
                "; its https goes through this backend\n  answered here  " +
                interception_.description() + "\n  base URL       " + desk_.baseUrl() + "\n";
    if (!admin_) return text;
    return text + "  page           " + admin_->pageUrl() +
           "\n  admin          kivo-dev state --admin-port " + std::to_string(admin_->port()) +
           "\n";
}

int ProgramRun::supervise() {
    start_ = SteadyClock::now();
    ChildProcess child(childOptions());
    guardian_.watch(child.id());
    narrator_.tell(readyText());
    auto& watch = *new ChildWatch({.child = child.id(),
                                   .endsDeafChild = !options_.quiet,
                                   .cleanUp = [path = folder_.path()] { removeFolder(path); }},
                                  signals_);
    follow(child, watch);
    desk_.awaitDisconnects();
    const int status = conclude(watch.state());
    output_.finish();
    watch.exitWith(status);
    return status;
}

void ProgramRun::follow(ChildProcess& child, const ChildWatch& watch) {
    if (!options_.quiet) return showOutputOf(child, watch.ended(), output_);
    std::uint64_t count = 0;
    while (read(watch.ended().number(), &count, sizeof count) < 0) continue;
}

int ProgramRun::conclude(const ChildState& state) {
    const auto totals = desk_.tally().totals();
    auto text = "kivo-dev: the program " + state.description() + "\n" + summaryOf(totals);
    if (totals.requests.empty())
        text += "  no requests arrived; most likely " +
                likelyCause(traffic_, state.exitStatus(), SteadyClock::now() - start_) + "\n";
    narrator_.tell(text);
    const bool broken = options_.common.strict && desk_.tally().violationsEver() > 0;
    const int status = state.exitStatus();
    for (const auto& report : options_.reports)
        report.write({.entries = desk_.journal().after(),
                      .totals = totals,
                      .program = options_.command.front(),
                      .ending = state.description(),
                      .exitStatus = status,
                      .showSecrets = desk_.showsSecrets()});
    return broken && status == exitStatus::success ? exitStatus::failure : status;
}

}  // namespace

int run(RunOptions options) {
    const auto inherited = openDescriptors();
    const GuardedSignals signals;
    const RunFolder folder;
    const Guardian guardian(folder.path());
    return ProgramRun(std::move(options), folder, guardian, signals, inherited).supervise();
}

}  // namespace kivo::backend
