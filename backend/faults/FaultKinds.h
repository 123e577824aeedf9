#pragma once

#include <span>
#include <string>
#include <string_view>

#include "backend/http/Greeting.h"
#include "backend/http/Reply.h"
#include "backend/http/Request.h"

namespace kivo::backend {

/// One way in which things go wrong on purpose.
struct FaultKind {
    using Misbehave = Reply (*)(const Request&, Reply good, std::string_view argument);

    std::string_view name;
    std::string_view form;  ///< How it is written, argument included.
    std::string_view description;
    bool (*accepts)(std::string_view argument);
    Misbehave misbehave = nullptr;         ///< Of a fault that befalls a request.
    Greeting greeting = Greeting::proper;  ///< Of a fault that befalls a connection.
};

std::span<const FaultKind> faultKinds();

/// nullptr when there is none of that name.
const FaultKind* faultKindNamed(std::string_view name);

/// Every kind with its description, a line each, for people to read.
std::string describeFaultKinds();

}  // namespace kivo::backend
