#pragma once

#include <cstdint>
#include <string>

namespace kivo::backend {

/// A gzip stream of 1 GiB of zeros, whose middle part is sent many times in a row.
struct ZippedZeros {
    std::string header;
    std::string megabyte;
    std::uint64_t megabytes = 1024;
    std::string trailer;
};

const ZippedZeros& zippedZeros();

}  // namespace kivo::backend
