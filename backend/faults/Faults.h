#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "backend/faults/Fault.h"
#include "backend/http/Greeting.h"
#include "backend/http/Request.h"

namespace kivo::backend {

/// Whether it meets clients that begin TLS; all others befall requests.
bool befallsConnections(const Fault& fault);

/// The faults that are on, oldest first. The newest that fits and that chance allows is drawn. Any
/// thread may call it.
class Faults {
public:
    struct Active {
        Fault fault;
        unsigned hits = 0;
    };

    explicit Faults(std::uint64_t seed) : chance_(seed) {}

    /// Throws std::invalid_argument when there are 1,000.
    void add(Fault fault);

    /// Removes the faults that the rule means, or all without one; says how many. Throws what
    /// parseFault throws.
    std::size_t clear(const std::optional<std::string>& rule = std::nullopt);

    /// Those that have used up their times included.
    std::vector<Active> list() const;

    /// The fault that befalls the request; uses up one of its times. Where a redirect by a fault
    /// has led, no fault follows.
    std::optional<Fault> draw(const Request& request);

    /// How the next client that begins TLS is met; uses up one of a fault's times.
    Greeting drawGreeting();

private:
    template <typename Fits>
    std::optional<Fault> drawNewest(const Fits& fits);

    mutable std::mutex mutex_;
    std::vector<Active> active_;
    std::mt19937_64 chance_;
};

}  // namespace kivo::backend
