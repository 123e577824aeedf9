#include "kivo/platform/tasks/OperationQueue.h"

#include <utility>

#include "kivo/platform/tasks/TaskPool.h"

namespace kivo::platform {

void OperationQueue::addOperation(Work& operation) {
    auto& pool = TaskPool::shared();
    const Lock lock(mutex_);
    waiting_.push(operation);
    if (!std::exchange(runs_, true)) pool.submitNext(turn_.of(shared_from_this()));
}

void OperationQueue::runAll() {
    while (Work* operation = next()) {
        try {
            operation->run();
        } catch (...) {  // The next operation still gets its turn.
        }
    }
}

Work* OperationQueue::next() {
    const Lock lock(mutex_);
    runs_ = !waiting_.isEmpty();
    return runs_ ? &waiting_.pop() : nullptr;
}

}  // namespace kivo::platform
