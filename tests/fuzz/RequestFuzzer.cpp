#include <boost/asio/buffer.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "backend/faults/FaultKinds.h"
#include "backend/http/RequestParser.h"
#include "backend/journal/Contract.h"
#include "backend/journal/Secrets.h"
#include "backend/service/Service.h"

using namespace kivo::backend;
using boost::system::error_code;

namespace {

/// The argument that stands in for the choices in its written form.
std::string_view argumentOf(const FaultKind& kind) {
    if (kind.name == "redirect") return "307,relative";
    if (kind.name == "status") return "503,html";
    return kind.accepts("") ? "" : "1s";
}

void answer(Service& service, const Request& request) {
    Contract contract([&](std::string_view token) { return service.issuedClaims(token); });
    for (const auto& violation : contract.violations(request))
        if (violation.text.empty() || violation.text.size() > 400) std::abort();
    if (withoutSecrets(request.body).empty() != request.body.empty()) std::abort();
    const auto good = service.answer(request);
    for (const auto& kind : faultKinds()) {
        const auto bad = kind.apply ? kind.apply(request, good, argumentOf(kind)) : good;
        if (wireText(bad, request, true).empty()) std::abort();
    }
}

}  // namespace

// Any bytes of a client are answered or refused, one request after the other.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Service service({.seed = 1, .clock = [] { return std::chrono::system_clock::time_point{}; }});
    boost::asio::const_buffer rest(bytes, size);
    for (error_code error; !error && rest.size() > 0;) {
        RequestParser parser({.headerBytes = 2048, .bodyBytes = 2048});
        parser.eager(true);
        rest += parser.put(rest, error);
        if (error == boost::beast::http::error::need_more) parser.put_eof(error);
        const auto request = requestFrom(parser);
        if (error && isProtocolError(error) && statusFor(error) < 400) std::abort();
        if (!error) answer(service, request);
    }
    return 0;
}
