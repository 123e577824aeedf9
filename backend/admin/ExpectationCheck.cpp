#include "backend/admin/ExpectationCheck.h"

#include <nlohmann/json.hpp>

#include "backend/journal/RequestLine.h"

namespace kivo::backend {

using nlohmann::json;

json checkExpectation(const std::vector<Entry>& entries, const Expectation& expectation,
                      bool showSecrets) {
    json matches = json::array();
    json nearest;
    std::size_t fewest = 0;
    for (const auto& entry : entries) {
        if (!isForEndpoint(entry, expectation)) continue;
        json found{{"number", entry.number}, {"line", requestLine(entry, showSecrets)}};
        const auto differing = differences(entry, expectation, showSecrets);
        if (differing.empty()) {
            matches.push_back(std::move(found));
        } else if (nearest.is_null() || differing.size() <= fewest) {
            fewest = differing.size();
            found["differences"] = differing;
            nearest = std::move(found);
        }
    }
    return {{"matches", std::move(matches)}, {"nearest", std::move(nearest)}};
}

}  // namespace kivo::backend
