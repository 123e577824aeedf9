#pragma once

#include <sys/stat.h>

namespace kivo::platform {

/// The file that a descriptor leads to. The host may close that descriptor and open another file
/// under its number.
class OpenFile {
public:
    explicit OpenFile(int descriptor) noexcept : isKnown_(fstat(descriptor, &file_) == 0) {}

    /// Whether `descriptor` leads to it.
    bool isAt(int descriptor) const noexcept {
        const OpenFile other(descriptor);
        return isKnown_ && other.isKnown_ && other.file_.st_dev == file_.st_dev &&
               other.file_.st_ino == file_.st_ino;
    }

    bool isRegular() const noexcept { return isKnown_ && S_ISREG(file_.st_mode); }

private:
    struct stat file_{};
    bool isKnown_;
};

}  // namespace kivo::platform
