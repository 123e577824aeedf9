#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "backend/http/Request.h"
#include "backend/journal/Journal.h"

namespace kivo::backend {

/// Which of the requests in the journal are meant.
struct RequestFilter {
    std::optional<std::string> endpoint = {};  ///< A name, or "img" for all images.
    std::optional<int> status = {};
    bool broken = false;                    ///< Only those that broke the contract.
    std::optional<std::size_t> limit = {};  ///< Only that many, the newest.
};

/// Reads ?endpoint=NAME&status=N&broken=1&limit=N, each of which may be absent; the endpoint may be
/// any unambiguous end of its path. Throws std::invalid_argument, with a message for the user.
RequestFilter filterIn(const Request& request);

/// The requests that the filter lets through, in their order.
std::vector<Entry> filtered(std::vector<Entry> entries, const RequestFilter& filter);

}  // namespace kivo::backend
