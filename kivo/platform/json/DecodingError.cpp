#include "kivo/platform/json/DecodingError.h"

#include <array>

namespace kivo::platform {

namespace {

std::string nameOf(DecodingError::Kind kind) {
    constexpr std::array names = {"keyNotFound", "valueNotFound", "typeMismatch", "dataCorrupted"};
    return names.at(static_cast<std::size_t>(kind));
}

}  // namespace

DecodingError::DecodingError(Kind kind, const std::string& keyPath, const std::string& reason)
    : Error(nameOf(kind) + " at " + (keyPath.empty() ? "the top level" : '"' + keyPath + '"') +
            ": " + reason),
      kind_(kind) {}

std::string DecodingError::localizedDescription() const {
    const bool isMissing = kind_ == Kind::keyNotFound || kind_ == Kind::valueNotFound;
    return isMissing ? "The data couldn’t be read because it is missing."
                     : "The data couldn’t be read because it isn’t in the correct format.";
}

}  // namespace kivo::platform
