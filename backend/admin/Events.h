#pragma once

#include "backend/http/Reply.h"
#include "backend/http/Request.h"

namespace kivo::backend {

struct AdminContext;

/// The journal's entries as they come, as server-sent events, and the state whenever it changes.
/// Each event's id says where to resume: "Last-Event-ID: RUN-NUMBER", or "?after=RUN-NUMBER". The
/// first event describes this run; the ids of another run begin anew. Entries that the journal has
/// dropped meanwhile are counted as lost. Holds one event at a time for a slow client.
Reply followEvents(AdminContext& context, const Request& request);

}  // namespace kivo::backend
