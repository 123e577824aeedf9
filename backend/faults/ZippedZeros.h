#pragma once

#include <string>

namespace kivo::backend {

/// One gzip member that unpacks to 1 MiB of zeros. Several in a row are a valid gzip file too.
std::string zippedZeros();

}  // namespace kivo::backend
