#include "backend/run/Run.h"

#include <unistd.h>

#include <chrono>
#include <cstdlib>
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
#include "backend/run/Narrator.h"
#include "backend/run/ProxyRole.h"
#include "backend/run/RunFolder.h"

namespace kivo::backend {

namespace {

using SteadyClock = std::chrono::steady_clock;

/// One run, from its parts to its verdict.
class ProgramRun {
public:
    ProgramRun(RunOptions options, const RunFolder& folder, const Guardian& guardian,
               const GuardedSignals& signals, const std::set<int>& inherited);

    int supervise();

private:
    DeskOptions deskOptions();
    ChildOptions childOptions() const;
    std::string readyText() const;
    void follow(ChildProcess& child, const ChildWatch& watch);
    int conclude(const ChildState& state);

    RunOptions options_;
    const RunFolder& folder_;
    const Guardian& guardian_;
    const GuardedSignals& signals_;
    Output output_;
    const Narrator narrator_;
    const ProxyRole proxy_;
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
      narrator_(output_, options_.quiet, options_.log),
      proxy_(options_.common, folder, "", [this](const auto& line) { narrator_.log(line); }),
      desk_(deskOptions(), [this](const Entry& entry) {
          narrator_.log(requestLine(entry, options_.common.desk.showSecrets));
      }) {
    desk_.open();
    if (options_.common.adminPort)
        admin_.emplace(desk_, *options_.common.adminPort, proxy_.adminInfo(desk_.port()));
    keepFromPrograms(inherited);
}

DeskOptions ProgramRun::deskOptions() {
    auto desk = options_.common.desk;
    desk.identity = proxy_.identity();
    desk.onlyOwnUser = true;
    proxy_.direct(desk);
    desk.onHandshakeFailed = [this](const std::string& reason) {
        narrator_.log(handshakeLine(reason));
    };
    return desk;
}

ChildOptions ProgramRun::childOptions() const {
    BackendAddress backend{.port = desk_.port(), .trustFile = proxy_.trustFile()};
    if (admin_) backend.adminPort = admin_->port();
    if (options_.fresh) backend.stateFolder = folder_.path();
    backend.isAnsweredHere = [this](const std::string& entry) {
        return proxy_.interception().isCoveredBy(entry);
    };
    return {.command = options_.command,
            .environment = childEnvironment(ownEnvironment(), backend),
            .mask = signals_.maskBefore(),
            .hasPipes = !options_.quiet};
}

std::string ProgramRun::readyText() const {
    auto text = "kivo-dev runs " + options_.command.front() +
                "; its https goes through this backend\n  answered here  " +
                proxy_.interception().description() + "\n  base URL       " + desk_.baseUrl() +
                "\n";
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
                likelyCause(totals, state.exitStatus(), SteadyClock::now() - start_) + "\n";
    narrator_.tell(text);
    const bool broken = options_.common.strict && desk_.tally().violationsEver() > 0;
    const int status = state.exitStatus();
    for (const auto& report : options_.reports)
        report.write({.entries = desk_.journal().after().entries,
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
