#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "backend/base/HostAndPort.h"
#include "backend/base/Mutex.h"
#include "backend/faults/Faults.h"
#include "backend/faults/Latency.h"
#include "backend/http/Server.h"
#include "backend/journal/Contract.h"
#include "backend/journal/Journal.h"
#include "backend/journal/Tally.h"
#include "backend/service/Images.h"
#include "backend/service/Service.h"

namespace kivo::backend {

struct DeskOptions {
    std::uint16_t port = 0;
    Lifetimes lifetimes = {};
    AuthRead authRead = AuthRead::last;
    Latency latency = {};
    std::vector<Fault> faults = {};
    /// Makes ids, tokens and random choices the same in every run.
    std::optional<std::uint64_t> seed = {};
    bool showSecrets = false;
    Identity identity = {};
    /// Presented to clients that use the backend as their proxy; empty: `identity`.
    Identity proxyIdentity = {};
    std::function<TunnelPolicy(const std::string&)> tunnelPolicy = {};
    /// Called with the "host:port" of the first connection to each host that is forwarded.
    std::function<void(const std::string&)> onForwarded = {};
    std::function<std::optional<UpstreamProxy>(const std::string&)> upstreamProxy = {};
    std::function<void(const std::string&)> onHandshakeFailed = {};
    /// Whether programs of other users are turned away.
    bool onlyOwnUser = false;
};

/// The whole development backend: a server in front of the service, with faults, latency, the
/// contract check, and a journal of all requests. Its parts may be used from any thread.
class Desk {
public:
    /// Does not listen before open(). The observer is called for every request.
    Desk(DeskOptions options, Journal::Observer observer);
    ~Desk();

    /// Throws std::runtime_error, with a message for the user, if the port cannot be bound.
    void open();

    /// Waits briefly for clients that are disconnecting: until they have, some of their requests
    /// may not be in the journal.
    void awaitDisconnects();

    /// Waits as awaitDisconnects() does, then stops listening.
    void close();

    std::uint16_t port() const { return server_->port(); }

    void addFault(Fault fault);

    /// Removes the faults with that rule, or all if there is none; returns how many. Requests that
    /// such a fault left hanging are answered. Throws what parseFault throws.
    std::size_t clearFaults(const std::optional<std::string>& rule = std::nullopt);

    /// Expires all tokens issued so far, of one kind or of both.
    void expire(std::optional<TokenKind> kind);

    /// Changes how long later replies are delayed.
    void setLatency(const Latency& latency);
    Latency latency() const;

    /// Clears sessions, tokens, faults, images, requests and totals, answers the requests that
    /// hang, and starts random choices anew: with a seed, as they were at the start.
    void reset();

    Service& service() { return service_; }
    const Faults& faults() const { return faults_; }
    Images& images() { return images_; }
    Journal& journal() { return journal_; }
    const Tally& tally() const { return tally_; }
    const Lifetimes& lifetimes() const { return options_.lifetimes; }
    bool showsSecrets() const { return options_.showSecrets; }

    /// "https://localhost:PORT/"
    std::string baseUrl() const;

private:
    HandshakeAction handshakeAction();
    TunnelPolicy tunnelPolicy(const std::string& authority);
    void handshakeFailed(const std::string& reason);
    Reply answer(const Request& request);
    Reply goodReply(const Request& request);
    std::string sessionOf(const Request& request) const;
    std::chrono::milliseconds drawLatency();
    void reseedLatency();
    std::vector<std::string> namesOf(const std::vector<std::string>& tokens) const;
    void finished(Exchange exchange);
    ServerOptions serverOptions();

    const DeskOptions options_;
    Service service_;
    Faults faults_;
    Images images_;
    Journal journal_;
    Tally tally_;
    mutable Mutex latencyMutex_;
    Latency latency_ KIVO_BACKEND_GUARDED_BY(latencyMutex_);
    std::mt19937_64 chance_ KIVO_BACKEND_GUARDED_BY(latencyMutex_);
    Contract contract_;  // Used only on the server's thread.
    std::unique_ptr<Server> server_;
};

}  // namespace kivo::backend
