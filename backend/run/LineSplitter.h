#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace kivo::backend {

/// Splits text that arrives in pieces into lines. A line over 64 KiB is passed on in parts.
class LineSplitter {
public:
    /// Called with each line, without its line break.
    using Callback = std::function<void(std::string_view line)>;

    explicit LineSplitter(Callback callback) : callback_(std::move(callback)) {}

    void add(std::string_view piece);

    /// Passes on a last line that has no line break.
    void finish();

private:
    const Callback callback_;
    std::string begun_;
};

}  // namespace kivo::backend
