#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace kivo::backend {

/// Makes lines of what comes in pieces. One over 64 KiB is handed over in parts.
class LineSplitter {
public:
    /// Called with each line, without its end.
    using Consumer = std::function<void(std::string_view line)>;

    explicit LineSplitter(Consumer consumer) : consumer_(std::move(consumer)) {}

    void add(std::string_view piece);

    /// Hands over what is left of a line that never ended.
    void finish();

private:
    const Consumer consumer_;
    std::string begun_;
};

}  // namespace kivo::backend
