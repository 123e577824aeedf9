#pragma once

#include <cstdint>

#include "backend/http/Server.h"

namespace kivo::backend {

class Desk;

/// A server for those who look at the running backend and change it: JSON over plain HTTP, for
/// programs on this machine and pages that this very port served. The desk must outlive it.
///
///     GET    /state
///     GET    /requests?after=N            numbers greater than N
///     GET    /faults                      POST {"rule": …}, DELETE {"rule": …} or {} for all
///     POST   /expire                      {"kind": "user" | "merchant" | "all"}
///     POST   /reset
///     POST   /images?file=NAME            the picture's bytes
///     POST   /expectations                {"words": […]}: has such a request come?
ServerOptions adminServerOptions(Desk& desk, std::uint16_t port);

}  // namespace kivo::backend
