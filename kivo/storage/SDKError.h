#pragma once

#include <functional>
#include <string>

#include "kivo/platform/base/Error.h"

namespace kivo {

/// The framework's own error, thrown only by re-authentication. Errors with the same case are
/// equal.
class SDKError final : public platform::Error {
public:
    enum Case {
        missingSdkParams,   ///< No saved SDK request could be read.
        missingUserParams,  ///< No saved user request could be read.
        tokenFetchError,    ///< The backend call returned no envelope.
    };

    explicit SDKError(Case value);

    Case value() const { return value_; }
    std::string localizedDescription() const override;
    bool operator==(const SDKError& other) const { return value_ == other.value_; }

private:
    Case value_;
};

}  // namespace kivo

template <>
struct std::hash<kivo::SDKError> {
    std::size_t operator()(const kivo::SDKError& error) const noexcept { return error.value(); }
};
