#pragma once

#include <memory>

#include "kivo/c/LineCallback.h"
#include "kivo/c/LineDescriptor.h"

/// Where a host that calls C has the lines sent. Each of the functions returns once a callback that
/// was in use before has returned from all its calls. They do nothing in a forked child, and throw
/// std::bad_alloc with nothing changed.
namespace kivo::c {

void sendLinesToStandardOutput();
void sendLinesTo(std::shared_ptr<LineDescriptor> descriptor);
void sendLinesTo(std::shared_ptr<LineCallback> callback);

}  // namespace kivo::c
