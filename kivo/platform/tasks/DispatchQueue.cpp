#include "kivo/platform/tasks/DispatchQueue.h"

#include <utility>

#include "kivo/platform/tasks/Loop.h"

namespace kivo::platform {

DispatchQueue::DispatchQueue(std::string label) : label_(std::move(label)) {}

void DispatchQueue::asyncBarrier(std::function<void()> block) const {
    Loop::shared().submit(std::move(block), Work::Kind::barrier);
}

}  // namespace kivo::platform
