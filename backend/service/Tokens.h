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
enum class TokenState { valid, missing, invalid, expired };

/// "merchant" or "user".
const char* nameOf(TokenKind kind);

struct TokenVerdict {
    TokenState state = TokenState::invalid;
    /// The session of a valid token.
    std::string sessionId = {};
};

/// The claims in a token.
struct TokenClaims {
    TokenKind kind = TokenKind::user;
    std::string name;  ///< M1, M2, … for merchants and U1, U2, … for users.
    std::string sessionId;
    bool hasTimes = false;  ///< Whether it says when it was issued.
};

/// The number in a token's name, as in U2; 0, which no token has, if there is none.
std::uint64_t numberIn(std::string_view name);

/// Reads a token's claims without checking its signature; std::nullopt if the format is not this
/// backend's.
std::optional<TokenClaims> readClaims(std::string_view token);

/// Issues and checks bearer tokens: JSON Web Tokens signed with HMAC-SHA256 and a key that lives as
/// long as this object. With a seed, key and tokens are the same in every run, and tokens carry no
/// times. Not thread-safe.
class Tokens {
public:
    explicit Tokens(const Lifetimes& lifetimes, Clock clock = std::chrono::system_clock::now,
                    std::optional<std::uint64_t> seed = std::nullopt);

    /// Gives every token a unique name. Only the newest 65,536 of a kind can be valid.
    std::string issue(TokenKind kind, const std::string& sessionId);

    /// A token of the other kind is invalid, like a forged one; an empty one is missing.
    TokenVerdict check(TokenKind kind, std::string_view token) const;

    /// The claims of a token that this object issued, expired ones included; std::nullopt for any
    /// other.
    std::optional<TokenClaims> issuedClaims(std::string_view token) const;

    /// Expires all tokens of that kind issued so far.
    void expire(TokenKind kind);

private:
    using Time = std::chrono::system_clock::time_point;
    /// The expiry times of the newest tokens of one kind, oldest first.
    struct Expiries {
        std::uint64_t issued = 0;
        std::deque<Time> newest = {};
    };

    bool isSigned(std::string_view token) const;
    std::string sign(std::string_view text) const;
    Expiries& expiriesOf(TokenKind kind) { return expiries_[kind == TokenKind::merchant ? 0 : 1]; }
    const Expiries& expiriesOf(TokenKind kind) const {
        return expiries_[kind == TokenKind::merchant ? 0 : 1];
    }
    TokenState stateOf(const TokenClaims& claims) const;

    Lifetimes lifetimes_;
    Clock clock_;
    bool includesTimes_;
    std::string key_;
    std::array<Expiries, 2> expiries_ = {};
};

}  // namespace kivo::backend
