#pragma once

#include <memory>

#include "kivo/platform/base/Mutex.h"
#include "kivo/platform/tasks/Work.h"

namespace kivo::platform {

/// Runs its operations on the shared pool, one at a time and in the order in which they were added.
/// An exception that leaves an operation is dropped. Owned by shared pointers, so that it lives
/// until its last operation has run.
class OperationQueue : public std::enable_shared_from_this<OperationQueue> {
public:
    void addOperation(Work& operation);

private:
    void runAll();
    Work* next();

    Mutex mutex_;
    WorkQueue waiting_ KIVO_GUARDED_BY(mutex_);
    bool runs_ KIVO_GUARDED_BY(mutex_) = false;
    Step<OperationQueue> turn_{&OperationQueue::runAll};
};

}  // namespace kivo::platform
