#pragma once

#include <nlohmann/json_fwd.hpp>

#include "backend/admin/Expectation.h"
#include "backend/journal/Journal.h"

namespace kivo::backend {

/// The requests among the entries that meet the expectation, oldest first, and of the others to its
/// endpoint the one that differs least:
///
///     {"matches": [{"number", "line"}, …],
///      "nearest": null | {"number", "line", "differences": [phrase, …]}}
nlohmann::json checkExpectation(const std::vector<Entry>& entries, const Expectation& expectation,
                                bool showSecrets);

}  // namespace kivo::backend
