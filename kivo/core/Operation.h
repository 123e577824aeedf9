#pragma once

#include "kivo/platform/system/CancellationShield.h"
#include "kivo/platform/system/Process.h"

namespace kivo {

/// Runs the part of a public operation that its caller's thread does. The operation is dropped if
/// memory or threads run out, in a forked child, and while the process ends: the host never sees a
/// failure.
template <typename Body>
void operation(const Body& body) noexcept {
    if (!platform::Process::isUsable()) return;
    const platform::CancellationShield uncancelled;
    try {
        body();
    } catch (...) {  // Dropped, as promised.
    }
}

}  // namespace kivo
