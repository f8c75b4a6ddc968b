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
    // The C and C++ libraries leave their atomic operations out of a process with a single thread. Programs of this
    // library have several, so that one is parked here for as long as anything is measured.
    std::binary_semaphore end(0);
    std::jthread const parked([&] { end.acquire(); });
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    end.release();
    return 0;
}
