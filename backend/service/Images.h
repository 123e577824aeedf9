#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/http/Reply.h"

namespace kivo::backend {

/// The pictures that were handed in, to be shown by notifications. The newest 16 are kept. Any
/// thread may call it.
class Images {
public:
    /// Of one picture, in bytes; whoever takes them in sees to it.
    static constexpr std::size_t largest = 1024 * 1024;

    struct Image {
        std::string name;
        std::string bytes;
        unsigned hits = 0;
    };

    /// Keeps a picture; what comes after the last dot of the file's name tells its type. Returns
    /// the name that it has from now on. Throws std::invalid_argument for an empty one.
    std::string add(std::string_view fileName, std::string bytes);

    /// The picture, and one hit more; nothing for a name that is not known.
    std::optional<Reply> serve(std::string_view name);

    /// 0 for a name that is not known.
    unsigned hits(std::string_view name) const;

    /// Without their bytes.
    std::vector<Image> list() const;

    void clear();

private:
    mutable std::mutex mutex_;
    std::deque<Image> images_;
    unsigned added_ = 0;
};

}  // namespace kivo::backend
