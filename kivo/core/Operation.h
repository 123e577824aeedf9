#pragma once

#include "kivo/platform/Process.h"
#include "kivo/platform/TaskPool+Scopes.h"

namespace kivo {

/// Carries out what a public operation does on its caller's thread. What it queues and launches is
/// handed over together, so that one thread is woken. Where the framework may not act, and where
/// memory or threads cannot be had, the operation is dropped: nothing ever goes wrong for the host.
template <typename Preparation>
void operation(const Preparation& prepare) noexcept {
    if (!platform::Process::isUsable()) return;
    try {
        const platform::TaskPool::Handover together;
        prepare();
    } catch (...) {  // Dropped, by promise.
    }
}

}  // namespace kivo
