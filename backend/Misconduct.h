#pragma once

#include "backend/Fault.h"
#include "backend/Reply.h"
#include "backend/Request.h"

namespace kivo::backend {

/// What goes to the client in place of the good reply that the request would have had.
Reply misconduct(const Request& request, Reply good, const Fault& fault);

}  // namespace kivo::backend
