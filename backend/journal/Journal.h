#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "backend/base/Mutex.h"
#include "backend/http/Exchange.h"

namespace kivo::backend {

/// What an entry tells of.
enum class EntryKind {
    request,
    handshake,  ///< A TLS handshake failed.
    forwarded,  ///< A host that is not answered here was connected for the first time.
    expired,    ///< All tokens of a kind were expired by command.
    reset,      ///< Everything was cleared by command.
};

/// One exchange and the findings about it, or another event, whose exchange has only a time.
struct Entry {
    /// Assigned by the journal, from 1.
    std::uint64_t number = 0;
    Exchange exchange = {};
    /// How the request broke the contract.
    Violations violations = {};
    /// How often this image has been requested; 0 for any other request.
    unsigned imageHits = 0;
    /// The short names of the tokens that the request carried and the reply gave.
    std::vector<std::string> carried = {};
    std::vector<std::string> given = {};
    EntryKind kind = EntryKind::request;
    /// The reason, host or kind of token, where the entry is not a request.
    std::string detail = {};
};

/// An event of this moment that is not a request.
Entry eventOf(EntryKind kind, std::string detail);

/// The limits of a journal.
struct JournalLimits {
    std::size_t entries = 256;
    std::size_t bodyBytes = 64 * 1024;
    /// All bodies and headers together. The newest entry is kept even if it is larger.
    std::size_t bytes = 8 * 1024 * 1024;
};

/// Entries as they are read from a journal.
struct Excerpt {
    std::vector<Entry> entries = {};
    /// How many before them were dropped, since only the newest are kept. Those that a reset
    /// cleared do not count.
    std::uint64_t lost = 0;
    /// The number of the journal's newest entry, which may be none of these.
    std::uint64_t newest = 0;
};

/// The newest exchanges. A body over the limit is cut, with a note of its length. May be called
/// from any thread.
class Journal {
public:
    using Observer = std::function<void(const Entry&)>;

    explicit Journal(const JournalLimits& limits = {}) : limits_(limits) {}

    /// Called with every later entry, on the recording thread and without a lock.
    void observe(Observer observer);

    void record(Entry entry);

    /// The entries with a greater number, oldest first. They end at the one that brings them to
    /// that many bytes.
    Excerpt after(std::uint64_t number = 0,
                  std::size_t bytes = std::numeric_limits<std::size_t>::max()) const;

    /// The number of the newest entry, kept or not; 0 if there never was one.
    std::uint64_t newest() const;

    const JournalLimits& limits() const { return limits_; }

    /// Removes all entries; numbering continues.
    void clear();

private:
    std::vector<Observer> keep(Entry& entry);
    void dropOldest() KIVO_BACKEND_REQUIRES(mutex_);
    std::uint64_t lostAfter(std::uint64_t number) const KIVO_BACKEND_REQUIRES(mutex_);

    const JournalLimits limits_;
    mutable Mutex mutex_;
    std::uint64_t recorded_ KIVO_BACKEND_GUARDED_BY(mutex_) = 0;
    std::uint64_t cleared_ KIVO_BACKEND_GUARDED_BY(mutex_) = 0;  // The newest cleared.
    std::deque<Entry> entries_ KIVO_BACKEND_GUARDED_BY(mutex_);
    std::size_t bytes_ KIVO_BACKEND_GUARDED_BY(mutex_) = 0;
    std::vector<Observer> observers_ KIVO_BACKEND_GUARDED_BY(mutex_);
};

}  // namespace kivo::backend
