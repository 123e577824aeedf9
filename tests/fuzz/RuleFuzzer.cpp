#include <cstdint>
#include <cstdlib>
#include <stdexcept>

#include "backend/faults/Fault.h"
#include "backend/faults/Latency.h"
#include "backend/service/Lifetimes.h"

using namespace kivo::backend;

namespace {

/// What is read can be written and read again.
void readFault(std::string_view text) {
    const auto rule = ruleOf(parseFault(text));
    if (ruleOf(parseFault(rule)) != rule) std::abort();
}

void readLatency(std::string_view text) {
    std::mt19937_64 generator;
    if (Latency::parse(text).draw(generator).count() < 0) std::abort();
}

void readLifetimes(std::string_view text) {
    if (parseLifetimes(text).user.count() < 0) std::abort();
}

}  // namespace

// What a person writes on the command line is read, or refused with advice.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    for (const auto read : {readFault, readLatency, readLifetimes}) {
        try {
            read(text);
        } catch (const std::invalid_argument&) {
        }
    }
    return 0;
}
