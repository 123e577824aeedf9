#pragma once

#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <cstdint>
#include <vector>

#include "backend/desk/Desk.h"
#include "backend/faults/Faults.h"
#include "backend/journal/Journal.h"
#include "backend/journal/Tally.h"
#include "backend/service/Images.h"
#include "backend/service/Service.h"

namespace kivo::backend {

/// The backend's state as JSON, for commands and pages. Secrets are shortened unless `showSecrets`
/// is set.
nlohmann::json stateOf(Desk& desk);
nlohmann::json recordOf(const Entry& entry, bool showSecrets);
nlohmann::json recordOf(const Totals& totals);
nlohmann::json recordsOf(const std::vector<Session>& sessions, bool showSecrets);
nlohmann::json recordsOf(const std::vector<Images::Image>& images);
nlohmann::json recordsOf(const std::vector<Faults::Active>& faults);

std::int64_t millisecondsSinceEpoch(std::chrono::system_clock::time_point time);

}  // namespace kivo::backend
