#pragma once

#include <utility>

#include "kivo/platform/tasks/TaskPool.h"
#include "kivo/platform/tasks/Work.h"

namespace kivo::platform {

class TaskPool::Handover {
public:
    Handover();
    ~Handover();
    Handover(const Handover&) = delete;
    Handover& operator=(const Handover&) = delete;

private:
    const bool isOutermost_;
    WorkQueue gathered_;
};

class TaskPool::Activity {
public:
    Activity();
    ~Activity();
    Activity(Activity&& other) noexcept : isOwn_(std::exchange(other.isOwn_, false)) {}
    Activity& operator=(Activity&&) = delete;

private:
    bool isOwn_ = true;
};

}  // namespace kivo::platform
