#include "backend/desk/Desk.h"

#include <utility>

#include "backend/faults/FaultKinds.h"
#include "backend/http/StartServer.h"
#include "backend/journal/TokenNames.h"
#include "backend/service/AuthRead.h"
#include "backend/service/Endpoints.h"

namespace kivo::backend {

namespace {

constexpr std::chrono::milliseconds disconnectLimit(50);
constexpr std::uint64_t faultSource = 0;
constexpr std::uint64_t latencySource = 1;

std::uint64_t randomSeed() {
    std::random_device device;
    return std::uint64_t{device()} << 32 | device();
}

/// Each random generator gets its own seed: with a shared one, the draws of one would predict those
/// of the other.
std::uint64_t seedOf(const DeskOptions& options, std::uint64_t source) {
    return (options.seed ? *options.seed : randomSeed()) + source;
}

/// What the client gets in place of the good reply.
Reply applyFault(const Request& request, Reply good, const Fault& fault) {
    const auto* kind = faultKindNamed(fault.kind);
    auto reply = kind->apply(request, std::move(good), fault.argument);
    reply.fault = ruleOf(fault);
    return reply;
}

}  // namespace

Desk::Desk(DeskOptions options, Journal::Observer observer)
    : options_(std::move(options)),
      service_(
          {.lifetimes = options_.lifetimes, .authRead = options_.authRead, .seed = options_.seed}),
      faults_(seedOf(options_, faultSource)),
      latency_(options_.latency),
      chance_(seedOf(options_, latencySource)),
      contract_([this](std::string_view token) { return service_.issuedClaims(token); }) {
    for (const auto& fault : options_.faults) faults_.add(fault);
    journal_.observe([this](const Entry& entry) { tally_.count(entry); });
    journal_.observe([observer = std::move(observer)](const Entry& entry) {
        if (entry.kind == EntryKind::request) observer(entry);
    });
}

Desk::~Desk() = default;

void Desk::open() { server_ = startServer(serverOptions(), "--port"); }

void Desk::awaitDisconnects() { server_->awaitDisconnects(disconnectLimit); }

void Desk::close() {
    awaitDisconnects();
    server_->stop();
}

std::string Desk::baseUrl() const { return "https://localhost:" + std::to_string(port()) + "/"; }

/// A fault that affects handshakes would miss a client that keeps its connections.
void Desk::addFault(Fault fault) {
    const bool atHandshake = affectsConnections(fault);
    faults_.add(std::move(fault));
    if (atHandshake) server_->closeIdleConnections();
}

std::size_t Desk::clearFaults(const std::optional<std::string>& rule) {
    const auto cleared = faults_.clear(rule);
    if (cleared > 0 && (!rule || isHang(parseFault(*rule)))) server_->release();
    return cleared;
}

void Desk::expire(std::optional<TokenKind> kind) {
    service_.expire(kind);
    journal_.record(eventOf(EntryKind::expired, kind ? nameOf(*kind) : "all"));
}

void Desk::setLatency(const Latency& latency) {
    const Lock lock(latencyMutex_);
    latency_ = latency;
}

Latency Desk::latency() const {
    const Lock lock(latencyMutex_);
    return latency_;
}

std::chrono::milliseconds Desk::drawLatency() {
    const Lock lock(latencyMutex_);
    return latency_.draw(chance_);
}

void Desk::reseedLatency() {
    const Lock lock(latencyMutex_);
    chance_.seed(seedOf(options_, latencySource));
}

void Desk::reset() {
    service_.reset();
    clearFaults();
    faults_.reseed(seedOf(options_, faultSource));
    reseedLatency();
    images_.clear();
    journal_.clear();
    tally_.clear();
    journal_.record(eventOf(EntryKind::reset, ""));
}

ServerOptions Desk::serverOptions() {
    return {.port = options_.port,
            .identity = options_.identity,
            .proxyIdentity = options_.proxyIdentity,
            .handler = [this](const Request& request) { return answer(request); },
            .chooseHandshake = [this] { return handshakeAction(); },
            .tunnelPolicy = [this](const std::string& target) { return tunnelPolicy(target); },
            .onHandshakeFailed = [this](const std::string& reason) { handshakeFailed(reason); },
            .onExchange = [this](Exchange exchange) { finished(std::move(exchange)); },
            .upstreamProxy = options_.upstreamProxy,
            .onlyOwnUser = options_.onlyOwnUser};
}

HandshakeAction Desk::handshakeAction() {
    const auto action = faults_.drawHandshakeAction();
    if (action == HandshakeAction::refuse) handshakeFailed("refused by a fault rule");
    return action;
}

void Desk::handshakeFailed(const std::string& reason) {
    if (options_.onHandshakeFailed) options_.onHandshakeFailed(reason);
    journal_.record(eventOf(EntryKind::handshake, reason));
}

TunnelPolicy Desk::tunnelPolicy(const std::string& authority) {
    if (!options_.tunnelPolicy) return TunnelPolicy::intercept;
    const auto policy = options_.tunnelPolicy(authority);
    if (policy == TunnelPolicy::forward && tally_.countForwarded(authority)) {
        if (options_.onForwarded) options_.onForwarded(authority);
        journal_.record(eventOf(EntryKind::forwarded, authority));
    }
    return policy;
}

Reply Desk::answer(const Request& request) {
    auto violations = contract_.violations(request);
    auto reply = goodReply(request);
    if (const auto fault = faults_.draw(request, sessionOf(request)))
        reply = applyFault(request, std::move(reply), *fault);
    reply.violations = std::move(violations);
    contract_.remember(request, reply);
    reply.delay += drawLatency();
    return reply;
}

/// The session of the last token, or else the one that the request names.
std::string Desk::sessionOf(const Request& request) const {
    const auto tokens = bearerTokens(request);
    const auto claims = tokens.empty() ? std::nullopt : service_.issuedClaims(tokens.back());
    return claims ? claims->sessionId : request.header("x-session-id");
}

Reply Desk::goodReply(const Request& request) {
    const auto image = imageAt(request.path());
    const bool isGet = request.method == "GET";
    if (image && (isGet || request.method == "HEAD")) {
        if (auto pushed = images_.serve(*image, isGet)) return std::move(*pushed);
    }
    return service_.answer(request);
}

std::vector<std::string> Desk::namesOf(const std::vector<std::string>& tokens) const {
    std::vector<std::string> names;
    names.reserve(tokens.size());
    for (const auto& token : tokens)
        names.push_back(tokenName(token, service_.issuedClaims(token)));
    return names;
}

void Desk::finished(Exchange exchange) {
    const auto image = imageAt(exchange.request.path());
    Entry entry{.violations = std::move(exchange.reply.violations),
                .imageHits = image ? images_.hits(*image) : 0,
                .carried = namesOf(carriedTokens(exchange.request)),
                .given = namesOf(givenTokens(exchange.reply))};
    entry.exchange = std::move(exchange);
    journal_.record(std::move(entry));
}

}  // namespace kivo::backend
