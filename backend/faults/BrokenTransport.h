#pragma once

#include <string_view>

#include "backend/http/Reply.h"
#include "backend/http/Request.h"

/// Good replies that arrive late, in part, without end, or from another address.
namespace kivo::backend {

bool isDuration(std::string_view argument);
Reply delayedByFault(const Request&, Reply good, std::string_view argument);
Reply dripping(const Request&, Reply good, std::string_view argument);

template <Delivery delivery>
Reply deliveredAs(const Request&, Reply good, std::string_view) {
    good.delivery = delivery;
    return good;
}

/// Endless white space.
Reply endlessBody(const Request&, Reply good, std::string_view);

/// 1 MiB that unpacks to 1 GiB.
Reply compressedBomb(const Request&, Reply, std::string_view);

/// "", "302", "302,host": a status (default 307) and a target (default "same").
bool isRedirect(std::string_view argument);
Reply redirected(const Request& request, Reply good, std::string_view argument);

/// Whether the client was sent here by such a redirect.
bool wasRedirected(const Request& request);

}  // namespace kivo::backend
