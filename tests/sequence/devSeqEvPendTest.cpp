#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"

#include "resmgt/smartPtrs/rcShdPtr.h"

#include <gtest/gtest.h>

namespace ZvTest {

using namespace Zv;

namespace {

using Events = Vector<std::int32_t>;

TEST(DevSeqEvPendTest, AnAddedEventStaysParked)
{
    RCShdPtr<DevSeqEvPend> const pend(new DevSeqEvPend);
    pend->addEvent(7);
    pend->addEvent(2);
    EXPECT_FALSE(pend->isReleased());
}

TEST(DevSeqEvPendTest, AnEmptyQueueIsNotReleased)
{
    RCShdPtr<DevSeqEvPend> const pend(new DevSeqEvPend);
    pend->release();
    EXPECT_FALSE(pend->isReleased());
    pend->addEvent(7);
    EXPECT_FALSE(pend->isReleased());
    pend->release();
    EXPECT_TRUE(pend->isReleased());
    pend->addEvent(8);
    EXPECT_TRUE(pend->isReleased());
}

TEST(DevSeqEvPendTest, TakeHandsAllOutAndStartsAnew)
{
    RCShdPtr<DevSeqEvPend> const pend(new DevSeqEvPend);
    pend->addEvent(7);
    pend->addEvent(2);
    pend->release();
    EXPECT_EQ(pend->take(), (Events{7, 2}));
    EXPECT_FALSE(pend->isReleased());
    pend->release();
    EXPECT_FALSE(pend->isReleased());
    pend->addEvent(3);
    pend->release();
    EXPECT_EQ(pend->take(), (Events{3}));
    EXPECT_EQ(pend->take(), Events());
}

} // namespace
} // namespace ZvTest
