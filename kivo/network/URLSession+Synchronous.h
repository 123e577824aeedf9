#pragma once

#include "kivo/platform/session/URLSession.h"

namespace kivo {

/// Loads `request` on `session` and blocks until it has ended. The error is dropped: without data
/// the data is empty, without a response the process stops. Calling it on a pool thread is a
/// programming error, which stops the process too: the pool it would block is the one that has to
/// deliver the answer.
platform::URLSession::DataAndResponse synchronousDataTask(const platform::URLSession& session,
                                                          platform::URLRequest request);

}  // namespace kivo
