// Processes that run many schedules, each of which begins with the same memory.
#include "explore/explorer.private.h"
#include "simulated/scenario.h"

#include "zvbase/platform/shared.h"

#include <cstdint>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

using namespace Zv::Simulated;

namespace {

int freeFile = -1;

void *mapPage()
{
    return ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
}

void noteFreeFile()
{
    freeFile = ::open("/dev/null", O_RDONLY);
    ::close(freeFile);
}

thread_local int ownRuns = 0;

} // namespace

SIMULATED(MemoryIsTheSameInEachSchedule, {.schedules = 300, .onKernel = 100, .exhaustive = 0})
{
    static int runs = 0;
    static int *heap = nullptr;
    HOLDS(++runs == 1 && ++ownRuns == 1 && !heap);
    heap = new int[1'000'000]{};
    Worker other("other", [] { HOLDS(++ownRuns == 1 && heap[999'999]++ == 0); });
    ZvPlatform::Shared<int> shared{0};
    shared.store(1, ZvPlatform::Order::RELAXED);
}

SIMULATED(FilesAreTheSameInEachSchedule,
          {.schedules = 100, .onKernel = 30, .prepare = noteFreeFile})
{
    HOLDS(::open("/dev/null", O_RDONLY) == freeFile);
}

/// The bits of the address are steps, so the repetition of a schedule compares them.
SIMULATED(MappingsAreTheSameInEachSchedule, {.schedules = 100, .onKernel = 30})
{
    void * const page = mapPage();
    HOLDS(page != MAP_FAILED && *static_cast<int *>(page) == 0);
    for (auto address = reinterpret_cast<std::uintptr_t>(page); address; address >>= 1)
        step(address & 1 ? "one" : "zero");
}

KNOWN_FAULT(WritesToNowhere, (Fault{.finding = "signal 11", .byRandom = 1, .byPriority = 1}), {})
{
    static int * volatile nowhere = nullptr;
    *nowhere = 1;
}

TEST(UsedProcesses, RestoreTheirMemory)
{
    Explorer explorer(getNursery());
    unsigned const program = Schedule::fromText("MemoryIsTheSameInEachSchedule")->scenario;
    Tally tally;
    explorer.byChance(tally, program, Choice::RANDOM, 1, 1);
    unsigned const before = getNursery().getRun().restored;
    explorer.byChance(tally, program, Choice::RANDOM, 50, 1);
    ASSERT_FALSE(tally.finding) << tally.finding->kind;
    EXPECT_EQ(getNursery().getRun().restored - before, Nursery::isRestoring() ? 50u : 0u);
}
