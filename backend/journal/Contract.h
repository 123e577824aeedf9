#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/http/Reply.h"
#include "backend/http/Request.h"
#include "backend/service/Endpoints.h"

namespace kivo::backend {

/// Checks requests against the contract, both ways: what the SDK may send is never accused, and
/// what it never sends always is. Some requests are right only after a certain reply, so the check
/// remembers replies. Not thread-safe.
class Contract {
public:
    /// The claims of a token that this backend issued; std::nullopt for any other token.
    using IssuedClaims = std::function<std::optional<TokenClaims>(std::string_view token)>;

    explicit Contract(IssuedClaims issued) : issued_(std::move(issued)) {}

    /// What breaks the contract; empty if nothing does. Images, paths that do
    /// not resemble the contract's, and a browser's preflight break nothing.
    Violations violations(const Request& request);

    /// Must be called with each reply before it is sent.
    void remember(const Request& request, const Reply& reply);

private:
    /// How many requests of a kind the replies so far have made right.
    struct Allowance {
        std::size_t redirected = 0;  ///< May have a query.
        std::size_t turnedToGet = 0;
    };

    void checkRedirectable(const Request& request, const Endpoint& endpoint, Violations& found);
    void checkAuthorization(const Request& request, const Endpoint& endpoint, Violations& found);
    void checkAbsence(const Endpoint& endpoint, Violations& found);
    void checkValue(std::string_view value, const Endpoint& endpoint, Violations& found);
    void checkToken(std::string_view token, TokenKind expected, Violations& found) const;
    void checkOrder(const std::vector<std::string_view>& values, Violations& found) const;

    const IssuedClaims issued_;
    std::map<std::string_view, Allowance> allowances_;
    std::size_t emptyMerchantTokens_ = 0;
    std::size_t emptyUserTokens_ = 0;
    /// A token that no header can carry leaves requests without one for as long as it is stored.
    bool gaveUnsendableToken_ = false;
};

/// Whether a browser asks if a page of another site may send a request.
bool isPreflight(const Request& request);

}  // namespace kivo::backend
