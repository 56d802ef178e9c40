// The main function of every benchmark program.

#include <benchmark/benchmark.h>
#include <thread>

int main(int argc, char** argv) {
    // The standard library's reference counts are cheaper in a process that has never had a second thread. Some
    // benchmarks start threads; with this one no result depends on whether it ran before or after those.
    std::thread([] {}).join();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
