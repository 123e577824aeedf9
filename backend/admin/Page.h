#pragma once

#include <optional>

#include "backend/http/Reply.h"
#include "backend/http/Request.h"

namespace kivo::backend {

/// The inspector page at "/" and the files that it loads; std::nullopt for any other path. They may
/// load nothing from elsewhere and run no script but their own. Compressed for who accepts that.
std::optional<Reply> pageFile(const Request& request);

}  // namespace kivo::backend
