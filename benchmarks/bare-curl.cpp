// libcurl and nothing else: one thread, the requests prepared beforehand.

#include "benchmarks/CurlHandles.h"

using namespace kivo::benchmarks;

namespace {

class BareCurl {
public:
    explicit BareCurl(const Load& load) : handles_(load) {}

    void run(int calls) {
        int started = 0;
        for (int ended = 0; ended < calls;) {
            for (; started < calls && handles_.hasIdle(); ++started) handles_.begin();
            const int endedNow = handles_.perform();
            ended += endedNow;
            if (endedNow == 0) handles_.wait();
        }
    }

private:
    CurlHandles handles_;
};

}  // namespace

int main(int argc, char** argv) {
    const Load load(argc, argv);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    BareCurl candidate(load);
    return measure(load, candidate);
}
