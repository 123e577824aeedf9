#pragma once

#include <string>

#include "kivo/platform/base/Error.h"

namespace kivo::platform {

/// Why bytes could not be read as a record. Its text names the kind, the path of keys and the
/// reason, and never repeats what the bytes held.
class DecodingError : public Error {
public:
    enum class Kind { keyNotFound, valueNotFound, typeMismatch, dataCorrupted };

    DecodingError(Kind kind, const std::string& keyPath, const std::string& reason);

    Kind kind() const noexcept { return kind_; }
    std::string localizedDescription() const override;

private:
    Kind kind_;
};

}  // namespace kivo::platform
