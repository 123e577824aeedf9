#include "kivo/platform/json/DecodingError.h"

#include "kivo/platform/system/FatalError.h"

namespace kivo::platform {

namespace {

std::string nameOf(DecodingError::Kind kind) {
    switch (kind) {
        case DecodingError::Kind::keyNotFound: return "keyNotFound";
        case DecodingError::Kind::valueNotFound: return "valueNotFound";
        case DecodingError::Kind::typeMismatch: return "typeMismatch";
        case DecodingError::Kind::dataCorrupted: return "dataCorrupted";
    }
    fatalError("not a kind of decoding error");
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
