#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

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

/// What one SDK authentication opened, and what came to be known under it since.
struct Session {
    std::string id;
    std::string apiKey;
    std::map<std::string, std::string> user = {};
    std::string deviceToken = {};
    std::string permission = {};
};

/// The backend's endpoints, as plain logic from request to reply, and the sessions they work on.
/// Any thread may call it.
class Service {
public:
    explicit Service(ServiceOptions options = {});

    Reply answer(const Request& request);

    /// The newest sessions, oldest first.
    std::vector<Session> sessions() const;

    /// Every token of that kind, or of both, has expired now.
    void expire(std::optional<TokenKind> kind = std::nullopt);

    /// Forgets everything, as if it had just been started; tokens of before are wrong, but for the
    /// ones that a seed makes again.
    void reset();

private:
    using Fields = std::map<std::string, std::string>;
    using Operation = Reply (Service::*)(const Fields&, const std::string&);
    static Operation operationAt(const Endpoint& endpoint);

    Reply serve(const Endpoint& endpoint, const Request& request);
    TokenVerdict check(TokenKind kind, const Request& request) const;
    Reply authenticateSdk(const Fields& fields, const std::string& sessionId);
    Reply authenticateUser(const Fields& fields, const std::string& sessionId);
    Reply updateDeviceToken(const Fields& fields, const std::string& sessionId);
    Reply updateConsent(const Fields& fields, const std::string& sessionId);
    Reply unsetUser(const Fields& fields, const std::string& sessionId);
    Session* find(const std::string& sessionId);

    const ServiceOptions options_;
    mutable std::mutex mutex_;
    Tokens tokens_;
    std::deque<Session> sessions_;
    std::uint64_t opened_ = 0;
};

}  // namespace kivo::backend
