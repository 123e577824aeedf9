// Replies and stored records, as they come from a server and from a disk that nobody vouches for:
// they are read or refused, and what was read is encoded and read again as the same.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "kivo/api/WireModels.h"
#include "kivo/platform/base/Description.h"
#include "kivo/platform/json/JSON.h"

namespace {

template <typename T>
void readAgain(const std::string& bytes) {
    try {
        const T record = kivo::platform::JSON::decode<T>(bytes);
        const std::string encoded = kivo::platform::JSON::encode(record);
        const T again = kivo::platform::JSON::decode<T>(encoded);
        const bool isSame = kivo::platform::describe(again) == kivo::platform::describe(record);
        if (!isSame || kivo::platform::JSON::encode(again) != encoded) std::abort();
    } catch (const kivo::platform::DecodingError&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    readAgain<kivo::ApiResponse<kivo::SdkAuthData>>(bytes);
    readAgain<kivo::ApiResponse<kivo::AuthUserResponseData>>(bytes);
    readAgain<kivo::UserAuthRequest>(bytes);
    readAgain<kivo::SdkAuthRequest>(bytes);
    return 0;
}
