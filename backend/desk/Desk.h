#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "backend/faults/Faults.h"
#include "backend/faults/Latency.h"
#include "backend/http/Server.h"
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
    /// Makes ids, tokens and chances the same in every run.
    std::optional<std::uint64_t> seed = {};
    bool showSecrets = false;
    Identity identity = {};
    std::function<Passage(const std::string&)> passage = {};
    std::function<void(const std::string&)> handshakeFailed = {};
};

/// The whole development backend: the service with its faults, its latency and the contract check,
/// behind a server, with a journal of what came. The parts may be used by any thread.
class Desk {
public:
    /// Listens from open() on. The observer sees every entry of the journal.
    Desk(DeskOptions options, Journal::Observer observer);
    ~Desk();

    /// Throws std::runtime_error, with a message for the user, if the port cannot be bound.
    void open();

    /// Lets clients that are leaving do so, a moment at most: until then requests of theirs may be
    /// missing.
    void settle();

    /// Settles and ends.
    void close();

    std::uint16_t port() const { return server_->port(); }

    void addFault(Fault fault);

    /// Forgets sessions, tokens, faults, images, requests and totals.
    void reset();

    Service& service() { return service_; }
    Faults& faults() { return faults_; }
    const Faults& faults() const { return faults_; }
    Images& images() { return images_; }
    Journal& journal() { return journal_; }
    const Tally& tally() const { return tally_; }
    bool showsSecrets() const { return options_.showSecrets; }

    /// "https://localhost:PORT/"
    std::string baseUrl() const;

private:
    Greeting greeting();
    Reply answer(const Request& request);
    Reply goodReply(const Request& request);
    void finished(Exchange exchange);
    ServerOptions serverOptions();

    const DeskOptions options_;
    Service service_;
    Faults faults_;
    Images images_;
    Journal journal_;
    Tally tally_;
    std::mt19937_64 chance_;  // The server's thread alone draws from it.
    std::unique_ptr<Server> server_;
};

}  // namespace kivo::backend
