#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "backend/base/Mutex.h"
#include "backend/journal/Journal.h"

namespace kivo::backend {

/// Totals since the start or the last reset.
struct Totals {
    /// By endpoint. Images share one count, and so do all unknown paths.
    std::map<std::string, std::uint64_t> requests = {};
    /// Authentications that followed a 401 for the same kind of token.
    std::uint64_t refreshes = 0;
    /// Requests that broke the contract.
    std::uint64_t violations = 0;
    /// Requests that a fault changed.
    std::uint64_t faultHits = 0;
    std::uint64_t failedHandshakes = 0;
    /// Connections to hosts that are not answered here, by "host:port"; hosts past the first 100
    /// share one count.
    std::map<std::string, std::uint64_t> forwarded = {};
};

/// Counts every entry, including those that the journal has dropped. May be called from any
/// thread.
class Tally {
public:
    void count(const Entry& entry);

    /// Whether it is the first connection to that host.
    bool countForwarded(const std::string& host);

    Totals totals() const;

    /// Includes requests from before the last reset.
    std::uint64_t violationsEver() const;
    void clear();

private:
    void countRequest(const Entry& entry) KIVO_BACKEND_REQUIRES(mutex_);
    void countRefresh(const Entry& entry) KIVO_BACKEND_REQUIRES(mutex_);

    mutable Mutex mutex_;
    Totals totals_ KIVO_BACKEND_GUARDED_BY(mutex_);
    std::uint64_t violationsEver_ KIVO_BACKEND_GUARDED_BY(mutex_) = 0;
    bool userTokenRefused_ KIVO_BACKEND_GUARDED_BY(mutex_) = false;
    bool merchantTokenRefused_ KIVO_BACKEND_GUARDED_BY(mutex_) = false;
};

}  // namespace kivo::backend
