#pragma once

#include <atomic>
#include <string>

#include "kivo/kivo.h"

namespace kivo::c {

/// A host's function that takes the lines, until it is retired.
class LineCallback {
public:
    LineCallback(kivo_line_callback function, void* context)
        : function_(function), context_(context) {}

    /// Calls the function. Once it is retired, the line goes to the output that replaced it.
    void call(std::string line);

    /// Returns when the function will not be called again and has returned from every call, except
    /// that within one of its calls it does not wait: two that replaced each other would wait for
    /// good.
    void retire() noexcept;

private:
    class Call;

    const kivo_line_callback function_;
    void* const context_;
    std::atomic<bool> isRetired_{false};
    std::atomic<int> calls_{0};  // Under way.
};

}  // namespace kivo::c
