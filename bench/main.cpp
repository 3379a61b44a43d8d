#include <cstdio>
#include <exception>

#include "bench/Requests.h"
#include "host/Memory.h"

int main(int argc, char* argv[]) {
    KIVO::Host::TuneAllocation(argv);  // both as the host does for its workers
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    KIVO::Host::KeepFreedMemory();
    KIVO::Bench::RegisterNotifications();
    KIVO::Bench::RegisterCategories();
    KIVO::Bench::RegisterTexts();
    try {
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "nexnotify_bench: %s\n", error.what());
        return 1;
    }
    return 0;
}
