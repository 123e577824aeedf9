#pragma once

#include <set>

namespace kivo::backend {

/// The open descriptors of this process.
std::set<int> openDescriptors();

/// Sets close-on-exec on all other descriptors, so that child programs do not inherit them.
void keepFromPrograms(const std::set<int>& inherited);

}  // namespace kivo::backend
