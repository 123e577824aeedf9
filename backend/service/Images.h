#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/base/Mutex.h"
#include "backend/http/Reply.h"

namespace kivo::backend {

/// The images added for notifications. Only the newest 16 are kept. May be called from any thread.
class Images {
public:
    /// The largest image, in bytes; callers of add() must check it.
    static constexpr std::size_t largest = 1024 * 1024;

    struct Image {
        std::string name;
        std::string bytes;
        unsigned hits = 0;
    };

    /// Stores an image; the extension of its file name determines the type. Returns the name to
    /// request it by. Throws std::invalid_argument if the image is empty.
    std::string add(std::string_view fileName, std::string bytes);

    /// The image; std::nullopt for an unknown name. Counts a hit if this is one.
    std::optional<Reply> serve(std::string_view name, bool isHit);

    /// 0 for an unknown name.
    unsigned hits(std::string_view name) const;

    /// All images, without their bytes.
    std::vector<Image> list() const;

    void clear();

private:
    mutable Mutex mutex_;
    std::deque<Image> images_ KIVO_BACKEND_GUARDED_BY(mutex_);
    unsigned added_ KIVO_BACKEND_GUARDED_BY(mutex_) = 0;
};

}  // namespace kivo::backend
