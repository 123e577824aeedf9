#pragma once

#include "kivo/platform/system/Process.h"
#include "kivo/platform/tasks/TaskPool+Scopes.h"

namespace kivo {

/// Carries out what a public operation does on its caller's thread. Where the framework may not
/// act, and where memory or threads cannot be had, the operation is dropped: nothing ever goes
/// wrong for the host.
template <typename Preparation>
void operation(const Preparation& prepare) noexcept {
    if (!platform::Process::isUsable()) return;
    try {
        prepare();
    } catch (...) {  // Dropped, by promise.
    }
}

/// The same for an operation that prints nothing on its caller's thread: what it queues and
/// launches is handed over together, so that one thread is woken.
template <typename Preparation>
void backgroundOperation(const Preparation& prepare) noexcept {
    operation([&] {
        const platform::TaskPool::Handover together;
        prepare();
    });
}

}  // namespace kivo
