#pragma once

#include <string>
#include <string_view>

#include "kivo/platform/system/OpenFile.h"

namespace kivo::c {

/// Writes lines to a duplicate of a host's descriptor, on one thread at a time.
class LineDescriptor {
public:
    explicit LineDescriptor(int descriptor) noexcept;
    ~LineDescriptor();
    LineDescriptor(const LineDescriptor&) = delete;
    LineDescriptor& operator=(const LineDescriptor&) = delete;

    /// Whether there is a duplicate to write to.
    bool isOpen() const { return own_ >= 0; }

    /// Writes a whole line; waits for a slow reader. What cannot be written is lost, and so is
    /// every line once the host has closed the duplicate. Throws std::bad_alloc.
    void write(std::string_view line);

private:
    const int own_;
    const platform::OpenFile file_;
};

}  // namespace kivo::c
