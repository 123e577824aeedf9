#pragma once

#include <span>
#include <string>
#include <string_view>

#include "backend/http/HandshakeAction.h"
#include "backend/http/Reply.h"
#include "backend/http/Request.h"

namespace kivo::backend {

/// What a kind of fault changes in a reply; other replies stay as they are.
enum class Changes { anyReply, jsonObject, tokens };

/// One kind of deliberate failure. It affects either requests or TLS handshakes.
struct FaultKind {
    using Apply = Reply (*)(const Request&, Reply good, std::string_view argument);

    std::string_view name;
    std::string_view form;  ///< Its written form, with argument.
    std::string_view description;
    bool (*accepts)(std::string_view argument);
    Apply apply = nullptr;                                 ///< For a fault that affects requests.
    HandshakeAction handshake = HandshakeAction::proceed;  ///< For a fault that affects handshakes.
    Changes changes = Changes::anyReply;
};

std::span<const FaultKind> faultKinds();

/// nullptr if there is no such kind.
const FaultKind* faultKindNamed(std::string_view name);

/// All kinds with their descriptions, one per line, for help texts.
std::string describeFaultKinds();

}  // namespace kivo::backend
