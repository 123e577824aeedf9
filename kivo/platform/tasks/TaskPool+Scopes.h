#pragma once

#include <utility>

#include "kivo/platform/Export.h"
#include "kivo/platform/TaskPool.h"
#include "kivo/platform/tasks/Work.h"

namespace kivo::platform {

class TaskPool::Handover {
public:
    KIVO_HIDDEN Handover();
    KIVO_HIDDEN ~Handover();
    Handover(const Handover&) = delete;
    Handover& operator=(const Handover&) = delete;

private:
    const bool isOutermost_;
    WorkQueue gathered_;
};

class TaskPool::Activity {
public:
    KIVO_HIDDEN Activity();
    KIVO_HIDDEN ~Activity();
    Activity(Activity&& other) noexcept : isOwn_(std::exchange(other.isOwn_, false)) {}
    Activity& operator=(Activity&&) = delete;

private:
    bool isOwn_ = true;
};

}  // namespace kivo::platform
