#include "kivo/platform/OperationQueue.h"

#include <utility>

#include "kivo/platform/TaskPool.h"

namespace kivo::platform {

void OperationQueue::addOperation(Operation operation) {
    const std::lock_guard lock(mutex_);
    waiting_.push_back(std::move(operation));
    if (runs_) return;
    TaskPool::shared().submitNext([self = shared_from_this()] { self->runAll(); });
    runs_ = true;
}

void OperationQueue::runAll() {
    while (Operation operation = next()) {
        try {
            operation();
        } catch (...) {  // The next operation still gets its turn.
        }
    }
}

OperationQueue::Operation OperationQueue::next() {
    const std::lock_guard lock(mutex_);
    if (waiting_.empty()) {
        runs_ = false;
        return nullptr;
    }
    Operation operation = std::move(waiting_.front());
    waiting_.pop_front();
    return operation;
}

}  // namespace kivo::platform
