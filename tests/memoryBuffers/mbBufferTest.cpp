#include "recording.h"

#include <gtest/gtest.h>

namespace {

using namespace ZvTest;

class MbBufferTest : public testing::Test
{
protected:
    ~MbBufferTest() noexcept override {}

    std::shared_ptr<RecordingProtocol::Control> control =
        std::make_shared<RecordingProtocol::Control>();
    RCShdPtr<RecordingManager> manager{new RecordingManager(control->log)};
    MbBufferSimpleFactory factory{initialState(), manager};
    MbBuffer buffer =
        factory.create("b", makeObj<RecordingProtocol>(control), 100, MbAlignment(63, 0, 0));
};

TEST_F(MbBufferTest, LivesFromLoadToFree)
{
    {
        MbBufferRdGuardImp const guard(buffer);
        EXPECT_EQ(control->memory, guard.getMemory());
        EXPECT_EQ(100u, control->size);
        EXPECT_TRUE(buffer.isLoaded());
    }
    EXPECT_EQ((Lines{"allocateRegion", "load", "unlocked", "bufferUnloadable"}),
              control->log.take());
    buffer = MbBuffer();
    EXPECT_EQ((Lines{"bufferNotUnloadable", "free", "deallocateRegion", "~protocol"}),
              control->log.take());
}

} // namespace
