#pragma once

#include <utility>
#include <vector>

#include "kivo/platform/Export.h"
#include "kivo/platform/TaskPool.h"

namespace kivo::platform {

class TaskPool::Handover {
public:
    KIVO_HIDDEN Handover();
    KIVO_HIDDEN ~Handover();
    Handover(const Handover&) = delete;
    Handover& operator=(const Handover&) = delete;

private:
    friend class TaskPool;
    std::vector<std::pair<Kind, Job>> gathered_;
};

class TaskPool::Activity {
public:
    KIVO_HIDDEN Activity();
    KIVO_HIDDEN ~Activity();
    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;
};

}  // namespace kivo::platform
