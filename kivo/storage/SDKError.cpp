#include "kivo/storage/SDKError.h"

#include <array>

namespace kivo {

namespace {

const char* name(SDKError::Case value) {
    constexpr std::array names = {"missingSdkParams", "missingUserParams", "tokenFetchError"};
    return names.at(value);
}

}  // namespace

SDKError::SDKError(Case value) : Error(name(value)), value_(value) {}

std::string SDKError::localizedDescription() const {
    return "The operation couldn’t be completed. (Kivo.SDKError error " + std::to_string(value_) +
           ".)";
}

}  // namespace kivo
