#pragma once

#include "backend/base/FileDescriptor.h"
#include "backend/run/ChildProcess.h"
#include "backend/run/Output.h"

namespace kivo::backend {

/// Shows what the program prints, each line with its origin in front, until `ended` becomes
/// readable; then what is left in the pipes. It does not wait for their end, since a process that
/// the program left behind may hold them open. A line without its end, such as a prompt, is shown
/// after 100 ms. When the reader of our output has left, so has the program's.
void showOutputOf(ChildProcess& child, const FileDescriptor& ended, Output& output);

}  // namespace kivo::backend
