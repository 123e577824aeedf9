#pragma once

#include <sys/types.h>

#include <filesystem>

#include "backend/base/FileDescriptor.h"

namespace kivo::backend {

/// A small process that outlives this one for a moment and tidies up after it, even after kill -9:
/// it ends the watched program, with SIGTERM and two seconds later with SIGKILL, and removes the
/// run's folder. It sees our end as the end of a pipe.
class Guardian {
public:
    /// Must be called before the process starts any thread. Throws std::system_error if there can
    /// be no further process.
    explicit Guardian(const std::filesystem::path& folder);

    void watch(pid_t program) const;

private:
    FileDescriptor pipe_;
};

}  // namespace kivo::backend
