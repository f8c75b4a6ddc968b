// Devices without memory. Each allocation of the calling thread fails in its turn.

#include "recording.h"

#include "testing/allocations.h"

#include <gtest/gtest.h>

#include <thread>

namespace ZvTest {
namespace {

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
    auto const gain = makeProperty<int>("gain", "", fifo, [](int &) {});
    int const nbFailures =
        failEachAllocation([&] { device->performOpen(); },
                           [&] {
                               EXPECT_THROW(device->performClose(), RCEx::ExNullPtr);
                               EXPECT_EQ(quiet.opened, 0);
                               int value = 0; // does not wait, because the device is not open
                               EXPECT_THROW(gain->get(value), DevPrtclEx::ExMDStdPropertyGet);
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

TEST(AllocationFailure, AGetThatFailsDoesNotWait)
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
    for (int depth = 0; depth < 100; ++depth) { // the builder's own memory grows, too
        LiString const current = builder.getCurrentSetName();
        failEachAllocation([&] { builder.pushSet(name + std::to_string(depth).c_str(), name); },
                           [&] {
                               EXPECT_TRUE(builder.getCurrentPropertySetIter().atEnd());
                               EXPECT_EQ(builder.getCurrentSetName(), current);
                           });
        EXPECT_NE(builder.getCurrentSetName(), current);
    }
    EXPECT_EQ(sets.size(), 1u);
}

} // namespace
} // namespace ZvTest
