// Kivo through its public operations, with nothing switched off; its lines go to a file.

#include "benchmarks/OutcomeLines.h"
#include "benchmarks/Workload.h"
#include "kivo/platform/Bundle.h"
#include "kivo/sdk/KivoSDK.h"

KIVO_BUNDLE_IDENTIFIER("com.example.benchmark")

using namespace kivo::benchmarks;

namespace {

class Kivo {
public:
    explicit Kivo(const Load& load)
        : inFlight_(load.inFlight), plugin_(kivo::KivoSDK::initialise({.apiKey = "benchmark"})) {
        OutcomeLines::await();
        plugin_->setUser("40", "711234567", "ana@example.com", "Ana");
        OutcomeLines::await();
    }

    void run(int calls) {
        for (int call = 0; call < calls; ++call) {
            if (call >= inFlight_) OutcomeLines::await();
            plugin_->updateDeviceToken(std::string(deviceToken));
        }
        OutcomeLines::await(std::min(calls, inFlight_));
    }

private:
    const int inFlight_;
    std::shared_ptr<kivo::KivoCommunicationPlugin> plugin_;
};

}  // namespace

int main(int argc, char** argv) {
    const Load load(argc, argv);
    Kivo candidate(load);
    return measure(load, candidate);
}
