// Kivo through its public operations, with nothing switched off; its lines go to a file.

#include "benchmarks/OutcomeLines.h"
#include "kivo/platform/Bundle.h"
#include "kivo/sdk/KivoSDK.h"

KIVO_BUNDLE_IDENTIFIER("com.example.benchmark")

using namespace kivo::benchmarks;

namespace {

class Kivo {
public:
    explicit Kivo(const Load& load)
        : inFlight_(load.inFlight), plugin_(kivo::KivoSDK::initialise({.apiKey = "benchmark"})) {
        lines_.await();
        plugin_->setUser("40", "711234567", "ana@example.com", "Ana");
        lines_.await();
    }

    void run(int calls) {
        for (int call = 0; call < calls; ++call) {
            if (call >= inFlight_) lines_.await();
            plugin_->updateDeviceToken(std::string(deviceToken));
        }
        for (int last = 0; last < std::min(calls, inFlight_); ++last) lines_.await();
    }

private:
    const int inFlight_;
    OutcomeLines lines_;
    std::shared_ptr<kivo::KivoCommunicationPlugin> plugin_;
};

}  // namespace

int main(int argc, char** argv) {
    const Load load(argc, argv);
    Kivo& candidate = *new Kivo(load);  // Lines may still come while the process ends.
    return measure(load, candidate);
}
