#pragma once

#include <string>
#include <string_view>

#include "kivo/platform/base/Mutex.h"

namespace kivo::c {

/// Writes lines to a duplicate of a host's descriptor. Any thread may call.
class LineDescriptor {
public:
    explicit LineDescriptor(int descriptor) noexcept;
    ~LineDescriptor();
    LineDescriptor(const LineDescriptor&) = delete;
    LineDescriptor& operator=(const LineDescriptor&) = delete;

    /// Whether there is a duplicate to write to.
    bool isOpen() const { return own_ >= 0; }

    /// Writes a whole line; waits for a slow reader. What cannot be written is lost. Throws
    /// std::bad_alloc.
    void write(std::string_view line);

private:
    platform::Mutex oneAtATime_;
    const int own_;
};

}  // namespace kivo::c
