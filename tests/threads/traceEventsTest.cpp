// Threads of the library in the trace of events: their names, and threads that are killed.

#include "zvbase/traceEvents.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "testing/traceFile.h"
#include "threadTesting.h"
#include "zvbase/platform/shared.h"

#include <gtest/gtest.h>

namespace ZvTest {

namespace {

using ZvPlatform::Order;
using ZvPlatform::Shared;

/// Runs until it is killed or stopped. Records events at first, not more than a test can read.
class Recorder final : public MtThreadProtocol
{
public:
    void performExecute(MtThread *thread) override
    {
        thread->enableCancel();
        while (!_isStopped.load(Order::ACQUIRE)) {
            if (nbRounds.fetch_add(1, Order::SEQ_CST) + 1 > NB_RECORDED)
                continue;
            TraceEvents::Slice const slice("test", "slice");
            TraceSpan span;
            span.begin("test", "span", "track");
        }
    }
    void performStop(MtThread *) override { _isStopped.store(true, Order::RELEASE); }
    void awaitRound() const
    {
        unsigned const before = nbRounds.load(Order::ACQUIRE);
        while (nbRounds.load(Order::ACQUIRE) == before)
            std::this_thread::yield();
    }

    Shared<unsigned> nbRounds{0};

private:
    static constexpr unsigned NB_RECORDED = 500;

    Shared<bool> _isStopped{false};
};

TEST(TracedThreads, HaveTheNamesOfTheirObjects)
{
    TraceRecording recording;
    auto * const recorder = new Recorder;
    ObjPtr<MtThread> const thread =
        MtThreadFactory::getInstance().createThread("a thread", ObjPtr<MtThreadProtocol>(recorder));
    thread->start();
    recorder->awaitRound();
    thread->stop();
    thread->join();
    TracedEvents const events = recording.stop();
    EXPECT_EQ(events.nameOf(events.find("test", "slice").at(0).thread), "a thread");
}

TEST(TracedThreads, MayBeKilledAtAnyPoint)
{
    constexpr int NB_KILLS = 10;
    TraceRecording recording;
    for (int i = 0; i < NB_KILLS; ++i) {
        auto * const recorder = new Recorder;
        ObjPtr<MtThread> const thread = MtThreadFactory::getInstance().createThread(
            "killed", ObjPtr<MtThreadProtocol>(recorder));
        thread->start();
        recorder->awaitRound();
        ASSERT_TRUE(thread->isCancelable());
        thread->cancel();
    }
    for (TracedEvent const &event : recording.stop().find("test", "slice"))
        EXPECT_EQ(event.phase, 'X');
    TraceRecording next;
    TraceEvents::instant("test", "afterwards");
    EXPECT_EQ(next.stop().find("test", "afterwards").size(), 1u);
}

} // namespace
} // namespace ZvTest
