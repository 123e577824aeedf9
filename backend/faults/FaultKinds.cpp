#include "backend/faults/FaultKinds.h"

#include <algorithm>
#include <array>

#include "backend/faults/BrokenContent.h"
#include "backend/faults/BrokenTransport.h"

namespace kivo::backend {

namespace {

bool isEmpty(std::string_view argument) { return argument.empty(); }

constexpr std::string_view redirectForm = "redirect[=STATUS][,same|relative|scheme|host|port|loop]";

constexpr auto kinds = std::to_array<FaultKind>({
    {"401", "401", "answers 401 with a JSON body", isEmpty, unauthorizedByFault},
    {"status", "status=503[,json|html|empty|good]",
     "answers with that status and a JSON, HTML, empty or good body", isStatus, statusByFault},
    {"empty-token", "empty-token", "returns empty tokens", isEmpty, emptyToken,
     HandshakeAction::proceed, Changes::tokens},
    {"line-break-token", "line-break-token", "returns tokens that contain a line break", isEmpty,
     lineBreakToken, HandshakeAction::proceed, Changes::tokens},
    {"no-data", "no-data", R"(leaves "data" out of the reply)", isEmpty, withoutData,
     HandshakeAction::proceed, Changes::jsonObject},
    {"refused", "refused", R"(answers "success" false without "data")", isEmpty, refused},
    {"refused-with-data", "refused-with-data", R"(answers "success" false with good data)", isEmpty,
     refusedWithData, HandshakeAction::proceed, Changes::jsonObject},
    {"garbage", "garbage", "answers with bytes that are not JSON", isEmpty, garbage},
    {"truncated-json", "truncated-json", "cuts the JSON off in the middle", isEmpty, truncatedJson},
    {"wrong-types", "wrong-types", "answers with JSON values of the wrong types", isEmpty,
     wrongTypes, HandshakeAction::proceed, Changes::jsonObject},
    {"delay", "delay=2s", "delays the reply (ms, s, m or h)", isDuration, delayedByFault},
    {"drip", "drip=100ms", "sends the reply byte by byte, with a pause before each", isDuration,
     dripping},
    {"hang", "hang", "never answers", isEmpty, deliveredAs<Delivery::hang>},
    {"reset-before", "reset-before", "resets the connection instead of answering", isEmpty,
     deliveredAs<Delivery::resetBeforeReply>},
    {"reset-in-headers", "reset-in-headers", "resets the connection halfway through the headers",
     isEmpty, deliveredAs<Delivery::resetInHead>},
    {"reset-after-headers", "reset-after-headers", "resets the connection between headers and body",
     isEmpty, deliveredAs<Delivery::resetAfterHead>},
    {"half-body", "half-body", "closes the connection after half of the body", isEmpty,
     deliveredAs<Delivery::cutBody>},
    {"endless", "endless", "sends a body that never ends", isEmpty, endlessBody},
    {"bomb", "bomb", "sends a gzip body of 1 MiB that unpacks to 1 GiB", isEmpty, compressedBomb},
    {"redirect", redirectForm,
     "redirects with 301, 302, 303, 307 or 308 to the same origin, another scheme, host or "
     "port, or in a loop",
     isRedirect, redirected},
    {"wrong-certificate", "wrong-certificate",
     "presents a certificate from an unknown authority (endpoint *)", isEmpty, nullptr,
     HandshakeAction::presentUntrusted},
    {"refused-handshake", "refused-handshake", "refuses new TLS connections (endpoint *)", isEmpty,
     nullptr, HandshakeAction::refuse},
});

}  // namespace

std::span<const FaultKind> faultKinds() { return kinds; }

const FaultKind* faultKindNamed(std::string_view name) {
    const auto* kind = std::ranges::find(kinds, name, &FaultKind::name);
    return kind == kinds.end() ? nullptr : kind;
}

std::string describeFaultKinds() {
    std::string text;
    for (const auto& kind : kinds)
        text += "  " + std::string(kind.form) + ": " + std::string(kind.description) + "\n";
    return text;
}

}  // namespace kivo::backend
