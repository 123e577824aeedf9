#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "backend/base/Mutex.h"
#include "backend/faults/Fault.h"
#include "backend/http/HandshakeAction.h"
#include "backend/http/Request.h"

namespace kivo::backend {

/// Whether the fault affects TLS handshakes; all others affect requests.
bool affectsConnections(const Fault& fault);

/// Whether the fault leaves requests without an answer until they are released.
bool isHang(const Fault& fault);

/// The active faults, oldest first. If several match, the newest applies that its probability lets
/// through. May be called from any thread.
class Faults {
public:
    struct Active {
        Fault fault;
        unsigned hits = 0;
    };

    explicit Faults(std::uint64_t seed) : chance_(seed) {}

    /// Throws std::invalid_argument if there are already 1,000.
    void add(Fault fault);

    /// Removes the faults with that rule, or all if there is none; returns how many. Throws what
    /// parseFault throws.
    std::size_t clear(const std::optional<std::string>& rule = std::nullopt);

    /// Starts the chances anew.
    void reseed(std::uint64_t seed);

    /// Includes faults that have been used up.
    std::vector<Active> list() const;

    /// The fault for this request of that session; counts as one of its times. A request that
    /// follows a redirect by a fault is spared.
    std::optional<Fault> draw(const Request& request, std::string_view session = "");

    /// How to treat the next TLS handshake; counts as one of the fault's times.
    HandshakeAction drawHandshakeAction();

private:
    template <typename Fits>
    std::optional<Fault> drawNewest(const Fits& fits);

    mutable Mutex mutex_;
    std::vector<Active> active_ KIVO_BACKEND_GUARDED_BY(mutex_);
    std::mt19937_64 chance_ KIVO_BACKEND_GUARDED_BY(mutex_);
};

}  // namespace kivo::backend
