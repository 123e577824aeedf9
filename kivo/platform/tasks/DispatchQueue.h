#pragma once

#include <functional>
#include <string>

namespace kivo::platform {

/// A concurrent queue that receives only barrier blocks: they run one at a time on the loop, in the
/// order in which they were queued. A task that is launched after a block was queued sees its
/// effect.
class DispatchQueue {
public:
    explicit DispatchQueue(std::string label);

    const std::string& label() const { return label_; }

    /// Queues `block` and returns at once.
    void asyncBarrier(std::function<void()> block) const;

private:
    std::string label_;
};

}  // namespace kivo::platform
