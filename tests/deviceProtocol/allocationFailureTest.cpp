// What happens when memory runs out: each allocation of the calling thread fails in its turn.

#include "recording.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <thread>

namespace {

/// Allocations of this thread that still succeed before one fails; negative for all.
thread_local long allocationsLeft = -1;

void *allocate(std::size_t size)
{
    if (allocationsLeft >= 0 && allocationsLeft-- == 0)
        throw std::bad_alloc();
    if (void * const memory = std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}

} // namespace

void *operator new(std::size_t size)
{
    return allocate(size);
}

void *operator new[](std::size_t size)
{
    return allocate(size);
}

void operator delete(void *memory) noexcept
{
    std::free(memory);
}

void operator delete[](void *memory) noexcept
{
    std::free(memory);
}

void operator delete(void *memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void *memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace ZvTest {
namespace {

/// Calls `function` with the first allocation failing, then the second and so on, until it succeeds. Returns the number
/// of failures. `afterwards` is called after each failure.
template <class Function, class Afterwards>
int failEachAllocation(Function function, Afterwards afterwards)
{
    for (int turn = 0;; ++turn) {
        try {
            allocationsLeft = turn;
            function();
            allocationsLeft = -1;
            return turn;
        } catch (std::bad_alloc &) {
            allocationsLeft = -1;
            afterwards();
        }
    }
}

struct Quiet
{
    int opened = 0;
    int closed = 0;

    void open() { ++opened; }
    void close() { ++closed; }
};

class QuietDevice : public DevMDStdAccessPrtcl
{
public:
    using DevMDStdAccessPrtcl::DevMDStdAccessPrtcl;
};

RCShdPtr<DevMDStdAccessPrtcl> quietDevice(Quiet &quiet, RCShdPtr<DevMDStdFifo> const &fifo)
{
    return RCShdPtr<DevMDStdAccessPrtcl>(new QuietDevice(
        "quiet", fifo, makeObj<DevMDStdLoopThreadProtocol>(fifo), makeAccessANOFactory(quiet)));
}

TEST(AllocationFailure, AnOpenThatFailsAnywhereLeavesADeviceThatCanBeDestroyed)
{
    Quiet quiet;
    auto const fifo = makeShd<DevMDStdFifo>();
    RCShdPtr<DevMDStdAccessPrtcl> device = quietDevice(quiet, fifo);
    int const nbFailures =
        failEachAllocation([&] { device->performOpen(); },
                           [&] {
                               EXPECT_THROW(device->performClose(), RCEx::ExNullPtr);
                               EXPECT_EQ(quiet.opened, 0);
                               device = quietDevice(quiet, fifo);
                           });
    EXPECT_GT(nbFailures, 3);
    EXPECT_EQ(quiet.opened, 1);
    device->performClose();
}

TEST(AllocationFailure, ACloseThatFailsCanBeTriedAgain)
{
    Quiet quiet;
    auto const fifo = makeShd<DevMDStdFifo>();
    RCShdPtr<DevMDStdAccessPrtcl> const device = quietDevice(quiet, fifo);
    device->performOpen();
    int const nbFailures =
        failEachAllocation([&] { device->performClose(); }, [&] { EXPECT_EQ(quiet.closed, 0); });
    EXPECT_GT(nbFailures, 2);
    EXPECT_EQ(quiet.closed, 1);
}

TEST(AllocationFailure, AGetThatFailsWaitsForNobody)
{
    auto const fifo = makeShd<DevMDStdFifo>();
    RCShdPtr<DevMDStdProperty<int>> const gain(new DevMDStdProperty<int>(
        "gain", "", 3, makePropertyANOFactory<int>([](int) {}, [](int &) {}), fifo));
    std::thread device([&] {
        ObjPtr<DevANO> ano(fifo->consume().release());
        ano->performExecute();
        ano->notify();
    });
    int value = 0;
    int const nbFailures = failEachAllocation([&] { gain->get(value); }, [] {});
    EXPECT_GT(nbFailures, 1);
    device.join();
}

TEST(AllocationFailure, ASetThatCannotBePushedChangesNothing)
{
    Vector<RCShdPtr<DevMDPropertySet>> sets;
    Vector<RCShdPtr<DevMDPropertyAny>> properties;
    int count = 1;
    DevMDStdPropertySetBuilder builder(sets, properties, count);
    LiString const name("lens");
    failEachAllocation([&] { builder.pushSet(name, name); },
                       [&] {
                           EXPECT_TRUE(sets.empty());
                           EXPECT_EQ(builder.getCurrentSetName(), "");
                       });
    EXPECT_EQ(sets.size(), 1u);
    EXPECT_EQ(builder.getCurrentSetName(), "lens");
}

} // namespace
} // namespace ZvTest
