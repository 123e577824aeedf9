#pragma once

#include "backend/Server.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

namespace kivo::backend {

/// The newest exchanges, kept as data for whoever wants to show them. Bodies over 64 KiB are cut
/// with a note. Any thread may call it.
class Journal {
public:
    using Observer = std::function<void(const Exchange&)>;

    explicit Journal(std::size_t capacity = 256);

    /// Called with every later exchange, on the thread that records it and without a lock.
    void observe(Observer observer);

    void record(Exchange exchange);

    /// Oldest first.
    std::vector<Exchange> recent() const;

private:
    const std::size_t capacity_;
    mutable std::mutex mutex_;
    std::deque<Exchange> exchanges_;
    std::vector<Observer> observers_;
};

}  // namespace kivo::backend
