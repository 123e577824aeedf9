#include "kivo/platform/tasks/DispatchQueue.h"

#include <utility>

#include "kivo/platform/tasks/TaskPool.h"

namespace kivo::platform {

DispatchQueue::DispatchQueue(std::string label) : label_(std::move(label)) {}

void DispatchQueue::asyncBarrier(std::function<void()> block) const {
    TaskPool::shared().submitBarrier(std::move(block));
}

}  // namespace kivo::platform
