#pragma once

#include <string>

namespace kivo::platform {

/// A random (version 4) identifier.
class UUID {
public:
    /// Generates a new one. Throws if the machine has no source of randomness.
    UUID();

    /// 36 characters, upper case.
    const std::string& uuidString() const { return text_; }

private:
    std::string text_;
};

}  // namespace kivo::platform
