#pragma once

#include <set>

namespace kivo::backend {

/// The numbers of all that this process has open.
std::set<int> openDescriptors();

/// Has every other descriptor closed in programs that are started from now on.
void keepFromPrograms(const std::set<int>& inherited);

}  // namespace kivo::backend
