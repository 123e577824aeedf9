#pragma once

#include "kivo/platform/session/URLSession.h"

namespace kivo {

/// Loads `request` on `session` and blocks until the load has ended. Errors are dropped: missing
/// data reads as empty data, and a missing response aborts the process. So does a call on the
/// loop, a programming error: it would block the thread that has to deliver the answer. Nothing in
/// the framework calls this; the modelled framework offers it.
platform::URLSession::DataAndResponse synchronousDataTask(const platform::URLSession& session,
                                                          platform::URLRequest request);

}  // namespace kivo
