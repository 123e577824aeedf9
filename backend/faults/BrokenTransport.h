#pragma once

#include <string_view>

#include "backend/http/Reply.h"
#include "backend/http/Request.h"

/// Good answers that arrive late, in part, without end or elsewhere.
namespace kivo::backend {

bool isDuration(std::string_view argument);
Reply delayedByFault(const Request&, Reply good, std::string_view argument);
Reply dripping(const Request&, Reply good, std::string_view argument);

template <Conduct conduct>
Reply conducted(const Request&, Reply good, std::string_view) {
    good.conduct = conduct;
    return good;
}

/// White space that never ends.
Reply endlessBody(const Request&, Reply good, std::string_view);

/// A mebibyte that unpacks to a gibibyte.
Reply compressedBomb(const Request&, Reply, std::string_view);

/// "", "302", "302,host": a status, by default 307, and a target, by default "same".
bool isRedirect(std::string_view argument);
Reply redirected(const Request& request, Reply good, std::string_view argument);

/// Whether a redirect by such a fault has led the client here.
bool wasRedirected(const Request& request);

}  // namespace kivo::backend
