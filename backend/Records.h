#pragma once

#include "backend/Faults.h"
#include "backend/Images.h"
#include "backend/Journal.h"
#include "backend/Service.h"
#include "backend/Tally.h"

#include <nlohmann/json_fwd.hpp>

#include <vector>

namespace kivo::backend {

/// What the backend knows, as the JSON that commands and pages read. Secrets are shortened unless
/// they are to be shown.
nlohmann::json recordOf(const Entry& entry, bool showSecrets);
nlohmann::json recordOf(const Totals& totals);
nlohmann::json recordsOf(const std::vector<Session>& sessions, bool showSecrets);
nlohmann::json recordsOf(const std::vector<Images::Image>& images);
nlohmann::json recordsOf(const std::vector<Faults::Active>& faults);

}  // namespace kivo::backend
