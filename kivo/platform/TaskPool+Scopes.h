#pragma once

#include <utility>
#include <vector>

#include "kivo/platform/TaskPool.h"

namespace kivo::platform {

class TaskPool::Handover {
public:
    Handover();
    ~Handover();
    Handover(const Handover&) = delete;
    Handover& operator=(const Handover&) = delete;

private:
    friend class TaskPool;
    std::vector<std::pair<Kind, Job>> gathered_;
};

class TaskPool::Activity {
public:
    Activity();
    ~Activity();
    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;
};

}  // namespace kivo::platform
