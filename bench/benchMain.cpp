#include "zvbase/inPackage.h"

#include <benchmark/benchmark.h>

#include <semaphore>
#include <thread>

int main(int argc, char **argv)
{
    Zv::InPackageScope packages;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    // The C and C++ libraries avoid atomic operations while a process has a single thread. Programs
    // that use this library have several threads, so a second thread waits here during all
    // measurements.
    std::binary_semaphore end(0);
    std::jthread const parked([&] { end.acquire(); });
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    end.release();
    return 0;
}
