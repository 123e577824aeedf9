#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "backend/http/Exchange.h"

namespace kivo::backend {

/// One exchange and what there is to say about it.
struct Entry {
    /// Counts from 1; given by the journal.
    std::uint64_t number = 0;
    Exchange exchange = {};
    /// What in the request broke the contract, in plain words.
    std::vector<std::string> violations = {};
    /// How often this image has been asked for; 0 for any other request.
    unsigned imageHits = 0;
};

/// What a journal holds at most.
struct JournalLimits {
    std::size_t entries = 256;
    std::size_t bodyBytes = 64 * 1024;
    /// Of all bodies and headers together; only the newest entry may exceed it.
    std::size_t bytes = 8 * 1024 * 1024;
};

/// The newest exchanges, kept as data for whoever wants to show them. A body over the limit is cut
/// with a note. Any thread may call it.
class Journal {
public:
    using Observer = std::function<void(const Entry&)>;

    explicit Journal(const JournalLimits& limits = {}) : limits_(limits) {}

    /// Called with every later entry, on the thread that records it and without a lock.
    void observe(Observer observer);

    void record(Entry entry);

    /// Those with a greater number, oldest first.
    std::vector<Entry> after(std::uint64_t number = 0) const;

    /// Forgets the entries; numbers go on.
    void clear();

private:
    void keep(const Entry& entry);
    void dropOldest();

    const JournalLimits limits_;
    mutable std::mutex mutex_;
    std::uint64_t recorded_ = 0;
    std::deque<Entry> entries_;
    std::size_t bytes_ = 0;
    std::vector<Observer> observers_;
};

}  // namespace kivo::backend
