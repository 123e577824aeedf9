#include "kivo/platform/system/ForkSafeMutex.h"

#include "kivo/platform/system/Process.h"

namespace kivo::platform {

void ForkSafeMutex::lock() {
    if (Process::isOwn()) mutex_.lock();
}

void ForkSafeMutex::unlock() {
    if (Process::isOwn()) mutex_.unlock();
}

}  // namespace kivo::platform
