#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "backend/service/Lifetimes.h"

namespace kivo::backend {

using Clock = std::function<std::chrono::system_clock::time_point()>;

enum class TokenKind { merchant, user };
enum class TokenState { valid, missing, wrong, expired };

/// "merchant" or "user".
const char* nameOf(TokenKind kind);

struct TokenVerdict {
    TokenState state = TokenState::wrong;
    /// The session that a valid token belongs to.
    std::string sessionId = {};
};

/// What a token says of itself.
struct TokenClaims {
    TokenKind kind = TokenKind::user;
    std::string name;  ///< M1, M2, … for merchants and U1, U2, … for users.
    std::string sessionId;
};

/// What the token says, whoever signed it; nothing when it is none of this backend's making.
std::optional<TokenClaims> readClaims(std::string_view token);

/// Issues and checks the bearer tokens: JSON web tokens signed with HMAC-SHA256 and a key that
/// lives as long as this object. With a seed, key and tokens are the same in every run; their times
/// are left out then. Not for several threads at once.
class Tokens {
public:
    explicit Tokens(const Lifetimes& lifetimes, Clock clock = std::chrono::system_clock::now,
                    std::optional<std::uint64_t> seed = std::nullopt);

    /// Every token has a name of its own. A kind's newest 65,536 can be valid.
    std::string issue(TokenKind kind, const std::string& sessionId);

    /// A token of the other kind is wrong, like a forged one; an empty one is missing.
    TokenVerdict check(TokenKind kind, std::string_view token) const;

    /// The tokens of that kind that were issued up to now have expired.
    void expire(TokenKind kind);

private:
    using Time = std::chrono::system_clock::time_point;
    /// When the newest tokens of one kind end, the oldest first.
    struct Ends {
        std::uint64_t issued = 0;
        std::deque<Time> newest = {};
    };

    std::string sign(std::string_view text) const;
    Ends& endsOf(TokenKind kind) { return ends_[kind == TokenKind::merchant ? 0 : 1]; }
    const Ends& endsOf(TokenKind kind) const { return ends_[kind == TokenKind::merchant ? 0 : 1]; }
    TokenState stateOf(const TokenClaims& claims) const;

    Lifetimes lifetimes_;
    Clock clock_;
    bool tellsTimes_;
    std::string key_;
    std::array<Ends, 2> ends_ = {};
};

}  // namespace kivo::backend
