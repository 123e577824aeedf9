#include "kivo/platform/Guarded.h"

#include "kivo/platform/system/Process.h"

namespace kivo::platform {

std::unique_lock<std::recursive_mutex> lockUnlessForked(std::recursive_mutex& mutex) {
    return Process::isOwn() ? std::unique_lock(mutex) : std::unique_lock<std::recursive_mutex>();
}

}  // namespace kivo::platform
