#pragma once

#include "kivo/platform/system/CancellationShield.h"
#include "kivo/platform/system/Process.h"
#include "kivo/platform/tasks/TaskPool+Scopes.h"

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

/// The same for an operation that prints nothing on its caller's thread: everything that it queues
/// and launches is handed over together, so that only one thread is woken.
template <typename Body>
void backgroundOperation(const Body& body) noexcept {
    operation([&] {
        const platform::TaskPool::Handover together;
        body();
    });
}

}  // namespace kivo
