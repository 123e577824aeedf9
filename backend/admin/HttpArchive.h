#pragma once

#include <nlohmann/json_fwd.hpp>

#include <vector>

#include "backend/journal/Journal.h"

namespace kivo::backend {

/// The entries as an HTTP Archive 1.2, which the network panels of browsers open.
nlohmann::json httpArchive(const std::vector<Entry>& entries, bool showSecrets);

}  // namespace kivo::backend
