#include "backend/Misconduct.h"

#include "backend/FaultKinds.h"

#include <utility>

namespace kivo::backend {

Reply misconduct(const Request& request, Reply good, const Fault& fault) {
    const auto* kind = faultKindNamed(fault.kind);
    if (!kind || !kind->misbehave) return good;
    return kind->misbehave(request, std::move(good), fault.argument);
}

}  // namespace kivo::backend
