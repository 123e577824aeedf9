#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "backend/base/Mutex.h"
#include "backend/http/Reply.h"
#include "backend/http/Request.h"
#include "backend/service/AuthRead.h"
#include "backend/service/Endpoints.h"
#include "backend/service/Lifetimes.h"
#include "backend/service/Tokens.h"

namespace kivo::backend {

struct ServiceOptions {
    Lifetimes lifetimes = {};
    AuthRead authRead = AuthRead::last;
    /// Makes tokens and ids the same in every run.
    std::optional<std::uint64_t> seed = {};
    Clock clock = std::chrono::system_clock::now;
};

/// What is known about one SDK authentication.
struct Session {
    std::string id;
    std::string apiKey;
    std::map<std::string, std::string> user = {};
    std::string deviceToken = {};
    std::string permission = {};
};

/// The backend's endpoints, as pure logic from request to reply, and their sessions. May be called
/// from any thread.
class Service {
public:
    explicit Service(ServiceOptions options = {});

    Reply answer(const Request& request);

    /// The newest sessions, oldest first.
    std::vector<Session> sessions() const;

    /// The claims of a token that was issued since the last reset; std::nullopt for any other.
    std::optional<TokenClaims> issuedClaims(std::string_view token) const;

    /// Expires all tokens issued so far, of one kind or of both.
    void expire(std::optional<TokenKind> kind = std::nullopt);

    /// Returns to the initial state. Earlier tokens become invalid, except that a seed issues the
    /// same ones again.
    void reset();

private:
    using Fields = std::map<std::string, std::string>;
    using Handler = Reply (Service::*)(const Fields&, const std::string&);
    static Handler handlerFor(const Endpoint& endpoint);

    Reply serve(const Endpoint& endpoint, const Request& request) KIVO_BACKEND_REQUIRES(mutex_);
    TokenVerdict check(TokenKind kind, const Request& request) const KIVO_BACKEND_REQUIRES(mutex_);
    Reply authenticateSdk(const Fields& fields, const std::string& sessionId)
        KIVO_BACKEND_REQUIRES(mutex_);
    Reply authenticateUser(const Fields& fields, const std::string& sessionId)
        KIVO_BACKEND_REQUIRES(mutex_);
    Reply updateDeviceToken(const Fields& fields, const std::string& sessionId)
        KIVO_BACKEND_REQUIRES(mutex_);
    Reply updateConsent(const Fields& fields, const std::string& sessionId)
        KIVO_BACKEND_REQUIRES(mutex_);
    Reply unsetUser(const Fields& fields, const std::string& sessionId)
        KIVO_BACKEND_REQUIRES(mutex_);
    Session* find(const std::string& sessionId) KIVO_BACKEND_REQUIRES(mutex_);

    const ServiceOptions options_;
    mutable Mutex mutex_;
    Tokens tokens_ KIVO_BACKEND_GUARDED_BY(mutex_);
    std::deque<Session> sessions_ KIVO_BACKEND_GUARDED_BY(mutex_);
    std::uint64_t opened_ KIVO_BACKEND_GUARDED_BY(mutex_) = 0;
};

}  // namespace kivo::backend
