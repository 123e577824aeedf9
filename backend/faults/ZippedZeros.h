#pragma once

#include <string>

namespace kivo::backend {

/// One gzip member that unpacks to a mebibyte of zeros; several in a row are a gzip file as well.
std::string zippedZeros();

}  // namespace kivo::backend
