#pragma once

#include <string>
#include <vector>

namespace kivo::backend {

/// One way in which a request broke the contract, and where.
struct Violation {
    enum class Part { path, method, header, body, member };

    Part part = Part::path;
    std::string text;       ///< A sentence.
    std::string name = {};  ///< Of the header or of the body's member; otherwise empty.

    bool operator==(const Violation&) const = default;
};

using Violations = std::vector<Violation>;

}  // namespace kivo::backend
