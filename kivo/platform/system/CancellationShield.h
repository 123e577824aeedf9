#pragma once

#include <pthread.h>

namespace kivo::platform {

/// While one exists, its thread cannot be cancelled. A thread cancelled inside the framework would
/// leave locks held and could not unwind through `noexcept`, which would abort the process. A
/// request that arrives meanwhile takes effect at the host's next cancellation point.
class CancellationShield {
public:
    CancellationShield() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~CancellationShield() { pthread_setcancelstate(before_, nullptr); }
    CancellationShield(const CancellationShield&) = delete;
    CancellationShield& operator=(const CancellationShield&) = delete;

private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace kivo::platform
