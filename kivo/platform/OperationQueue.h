#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace kivo::platform {

/// Runs its operations on the shared pool one at a time, in the order in which they came. An
/// operation that throws is dropped. Made shared, so that it lives until the last of its operations
/// has run.
class OperationQueue : public std::enable_shared_from_this<OperationQueue> {
public:
    using Operation = std::function<void()>;

    void addOperation(Operation operation);

private:
    void runAll();
    Operation next();

    std::mutex mutex_;
    std::deque<Operation> waiting_;
    bool runs_ = false;
};

}  // namespace kivo::platform
