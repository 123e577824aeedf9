// From main() to the first reply with libcurl alone, which looks its authorities up in the trust
// directory. The process then stays, at rest, until its input ends.

#include "benchmarks/CurlHandles.h"

int main(int argc, char** argv) {
    using namespace kivo::benchmarks;
    const Meter meter;
    const Load load(argc, argv);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    CurlHandles handles(load);
    handles.begin();
    while (handles.perform() == 0) handles.wait();
    meter.report(1);
    std::getchar();
}
