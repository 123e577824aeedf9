#pragma once

#include "backend/http/Reply.h"
#include "backend/http/Request.h"

namespace kivo::backend {

struct AdminContext;

/// Answers one admin request, which inspects or changes the running backend. Requests and replies
/// are JSON. Only programs on this machine, and pages that this port served, are answered.
///
///     GET    /                            the inspector page, which loads its files from here
///     GET    /events                      server-sent events, see Events.h
///     GET    /state
///     GET    /requests?after=N            numbers greater than N; see RequestFilter.h for more
///     GET    /faults                      POST {"rule": …}, DELETE {"rule": …} or {} for all
///     POST   /expire                      {"kind": "user" | "merchant" | "all"}
///     POST   /latency                     {"latency": "80ms+-30ms"}
///     POST   /reset
///     POST   /images?file=NAME            the image's bytes
///     POST   /expectations                {"words": […], "after": N}, see ExpectationCheck.h
Reply adminReply(AdminContext& context, const Request& request);

}  // namespace kivo::backend
