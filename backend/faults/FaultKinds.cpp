#include "backend/faults/FaultKinds.h"

#include <algorithm>
#include <array>

#include "backend/faults/BrokenContent.h"
#include "backend/faults/BrokenTransport.h"

namespace kivo::backend {

namespace {

bool isNothing(std::string_view argument) { return argument.empty(); }

constexpr std::string_view redirectForm = "redirect[=STATUS][,same|relative|scheme|host|port|loop]";

constexpr auto kinds = std::to_array<FaultKind>({
    {"401", "401", "answers 401 with a decodable body", isNothing, unauthorizedByFault},
    {"status", "status=503[,json|html|empty|good]",
     "answers with that status and a decodable, HTML, empty or the good answer's body", isStatus,
     statusByFault},
    {"empty-token", "empty-token", "gives tokens that are empty", isNothing, emptyToken},
    {"line-break-token", "line-break-token", "gives tokens with a line break in them", isNothing,
     lineBreakToken},
    {"no-data", "no-data", R"(leaves "data" out of the answer)", isNothing, withoutData},
    {"refused", "refused", R"(answers "success" false without "data")", isNothing, refused},
    {"refused-with-data", "refused-with-data", R"(answers "success" false beside good data)",
     isNothing, refusedWithData},
    {"garbage", "garbage", "answers with bytes that are no JSON", isNothing, garbage},
    {"truncated-json", "truncated-json", "stops in the middle of the JSON text", isNothing,
     truncatedJson},
    {"wrong-types", "wrong-types", "answers JSON whose values have other types", isNothing,
     wrongTypes},
    {"delay", "delay=2s", "answers that much later (ms, s, m or h)", isDuration, delayedByFault},
    {"drip", "drip=100ms", "sends the answer byte by byte, a pause before each", isDuration,
     dripping},
    {"hang", "hang", "never answers", isNothing, conducted<Conduct::hang>},
    {"reset-before", "reset-before", "resets the connection instead of answering", isNothing,
     conducted<Conduct::resetBeforeReply>},
    {"reset-in-headers", "reset-in-headers", "resets it half way through the headers", isNothing,
     conducted<Conduct::resetInHead>},
    {"reset-after-headers", "reset-after-headers", "resets it between headers and body", isNothing,
     conducted<Conduct::resetAfterHead>},
    {"half-body", "half-body", "closes the connection after half of the body", isNothing,
     conducted<Conduct::cutBody>},
    {"endless", "endless", "sends a body that never ends", isNothing, endlessBody},
    {"bomb", "bomb", "sends a gzip body of 1 MiB that unpacks to 1 GiB", isNothing, compressedBomb},
    {"redirect", redirectForm,
     "redirects with 301, 302, 303, 307 or 308 to the same origin, another scheme, host or "
     "port, or for ever",
     isRedirect, redirected},
    {"wrong-certificate", "wrong-certificate",
     "shows new connections a certificate that nobody vouches for (endpoint *)", isNothing, nullptr,
     Greeting::untrusted},
    {"refused-handshake", "refused-handshake", "refuses new TLS connections (endpoint *)",
     isNothing, nullptr, Greeting::refusal},
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
