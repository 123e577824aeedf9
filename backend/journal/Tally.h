#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "backend/journal/Journal.h"

namespace kivo::backend {

/// What there was in all since the start or the last reset.
struct Totals {
    /// By endpoint; images, and whatever is no endpoint, are counted together.
    std::map<std::string, std::uint64_t> requests = {};
    /// Authentications that a 401 of their own kind came before.
    std::uint64_t refreshes = 0;
    /// Requests that broke the contract.
    std::uint64_t violations = 0;
};

/// Counts every exchange, those too that a journal has no more room for. Any thread may call it.
class Tally {
public:
    void count(const Entry& entry);
    Totals totals() const;

    /// Requests that broke the contract, from before the last reset too.
    std::uint64_t violationsEver() const;
    void clear();

private:
    void countRefresh(const Entry& entry);

    mutable std::mutex mutex_;
    Totals totals_;
    std::uint64_t violationsEver_ = 0;
    bool userTokenRefused_ = false;
    bool merchantTokenRefused_ = false;
};

}  // namespace kivo::backend
