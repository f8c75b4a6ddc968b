#include "recording.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <type_traits>

namespace ZvTest {
namespace {

static_assert(std::is_copy_constructible_v<RecordingACO>);
static_assert(!std::is_copy_constructible_v<RecordingANO>);
static_assert(!std::is_copy_assignable_v<RecordingANO>);
static_assert(std::is_constructible_v<DevANOQueueEntry, DevANOQueueEntry const &>);
static_assert(std::has_virtual_destructor_v<DevAEO>);
static_assert(!std::is_nothrow_destructible_v<DevAEO>);

TEST(DevANO, NotifyWithoutAnACODoesNothing)
{
    Journal log;
    ObjPtr<DevANO> ano(recordingANO(log, "ano"));
    ano->notify();
    EXPECT_EQ(log.getLines(), Lines{});
}

TEST(DevANO, NotifyRunsAndDestroysTheACOOnce)
{
    Journal log;
    ObjPtr<DevANO> ano(recordingANO(log, "ano"));
    ano->setACO(recordingACO(log, "aco"));
    ano->notify();
    EXPECT_EQ(log.getLines(), (Lines{"aco", "~aco"}));
    ano->notify();
    EXPECT_EQ(log.getLines(), (Lines{"aco", "~aco"}));
}

TEST(DevANO, SetACODestroysTheFormerOne)
{
    Journal log;
    ObjPtr<DevANO> ano(recordingANO(log, "ano"));
    ano->setACO(recordingACO(log, "first"));
    ano->setACO(recordingACO(log, "second"));
    EXPECT_EQ(log.getLines(), Lines{"~first"});
    ano->setACO(nullptr);
    EXPECT_EQ(log.getLines(), (Lines{"~first", "~second"}));
}

TEST(DevANO, DestroysAnACOThatHasNotRun)
{
    Journal log;
    {
        ObjPtr<DevANO> ano(recordingANO(log, "ano"));
        ano->setACO(recordingACO(log, "aco"));
    }
    EXPECT_EQ(log.getLines(), (Lines{"~ano", "~aco"}));
}

TEST(DevANO, ReleaseACOTwiceYieldsTheACOAndThenOneThatDoesNothing)
{
    Journal log;
    ObjPtr<DevANO> ano(recordingANO(log, "ano"));
    ano->setACO(recordingACO(log, "aco"));
    ObjPtr<DevACO> first(ano->releaseACO());
    ObjPtr<DevACO> second(ano->releaseACO());
    ASSERT_FALSE(second.isNull());
    second->performExecute();
    EXPECT_EQ(log.getLines(), Lines{});
    first->performExecute();
    EXPECT_EQ(log.getLines(), Lines{"aco"});
    ano->notify(); // the ANO has no ACO now
    EXPECT_EQ(log.getLines(), Lines{"aco"});
}

TEST(DevANO, AnACOThatThrowsIsDestroyedWithTheANO)
{
    Journal log;
    {
        ObjPtr<DevANO> ano(recordingANO(log, "ano"));
        struct Guard : RecordingACO
        {
            explicit Guard(Journal &log) : RecordingACO(log, "aco") {}
            void performExecute() override { throw std::runtime_error("aco"); }
        };
        ano->setACO(ObjPtr<DevACO>(new Guard(log)));
        EXPECT_THROW(ano->notify(), std::runtime_error);
    }
    EXPECT_EQ(log.getLines(), (Lines{"~ano", "~aco"}));
}

TEST(DevACO, MadeFromACallableRunsIt)
{
    Journal log;
    ObjPtr<DevMDStdANO> ano(recordingANO(log, "ano"));
    ano->setACO(makeACO([&] { log.add("run"); }));
    ano->notify();
    EXPECT_EQ(log.getLines(), Lines{"run"});
}

/// Completion that logs its failure.
class FailableACO final : public DevFailableACO
{
public:
    explicit FailableACO(Journal &log) : _log(log) {}
    void performExecute() override { _log.add("executed"); }
    void performFail(std::exception_ptr const &failure) override
    {
        try {
            std::rethrow_exception(failure);
        } catch (std::exception const &exception) {
            _log.add(exception.what());
        }
    }

private:
    Journal &_log;
};

TEST(DevANO, ReportsAFailureToAFailableACOOnce)
{
    Journal log;
    ObjPtr<DevANO> ano(recordingANO(log, "ano"));
    auto const failure = std::make_exception_ptr(std::runtime_error("no tape"));
    EXPECT_FALSE(ano->notifyFailure(failure));
    ano->setACO(makeObj<FailableACO>(log));
    EXPECT_TRUE(ano->notifyFailure(failure));
    EXPECT_FALSE(ano->notifyFailure(failure));
    EXPECT_EQ(log.getLines(), Lines{"no tape"});
}

TEST(DevANO, KeepsAnotherACOWhenItFails)
{
    Journal log;
    ObjPtr<DevANO> ano(recordingANO(log, "ano"));
    ano->setACO(recordingACO(log, "aco"));
    EXPECT_FALSE(ano->notifyFailure(std::make_exception_ptr(std::runtime_error("no tape"))));
    EXPECT_EQ(log.getLines(), Lines{});
    ano->notify();
    EXPECT_EQ(log.getLines(), (Lines{"aco", "~aco"}));
}

TEST(DevANO, MadeFromACallableOwnsWhatItHolds)
{
    Journal log;
    ObjPtr<DevACO> held(recordingACO(log, "held"));
    ObjPtr<DevANO> ano(makeANO([held = std::move(held), &log] {
        log.add("executed");
        held->performExecute();
    }));
    ano->performExecute();
    ano = nullptr;
    EXPECT_EQ(log.getLines(), (Lines{"executed", "held", "~held"}));
}

TEST(DevANO, MadeFromACallableThatTakesItsRequestItMayKeepTheCompletion)
{
    Journal log;
    ObjPtr<DevACO> kept;
    ObjPtr<DevANO> ano(makeANO([&](DevMDStdANO &request) { kept = request.releaseACO(); }));
    ano->setACO(recordingACO(log, "aco"));
    ano->performExecute();
    ano->notify();
    ano = nullptr;
    EXPECT_EQ(log.getLines(), Lines{});
    kept->performExecute();
    EXPECT_EQ(log.getLines(), Lines{"aco"});
}

class CountingANO : public DevClonableANO
{
public:
    explicit CountingANO(int &count) : _count(count) {}

    void performExecute() override { ++_count; }
    ObjPtrRet<DevClonableANO> clone() const override { return makeObj<CountingANO>(_count); }

private:
    int &_count;
};

TEST(DevClonableANO, AClonePassesTheSameRequestWithoutTheACO)
{
    Journal log;
    int count = 0;
    ObjPtr<DevClonableANO> prototype(new CountingANO(count));
    prototype->setACO(recordingACO(log, "aco"));
    ObjPtr<DevANO> clone(prototype->clone());
    EXPECT_NE(dynamic_cast<CountingANO *>(clone.get()), nullptr);
    clone->performExecute();
    clone->notify();
    EXPECT_EQ(count, 1);
    EXPECT_EQ(log.getLines(), Lines{});
}

TEST(DevANOQueueEntry, HoldsNothingAtFirst)
{
    DevANOQueueEntry entry;
    EXPECT_TRUE(entry.isNull());
    EXPECT_TRUE(ObjPtr<DevANO>(entry.release()).isNull());
}

TEST(DevANOQueueEntry, CopyingMovesAlsoFromAConstSource)
{
    Journal log;
    DevANOQueueEntry const source{ObjPtr<DevANO>(recordingANO(log, "ano"))};
    DevANOQueueEntry copy(source);
    EXPECT_TRUE(source.isNull());
    ASSERT_FALSE(copy.isNull());
    ObjPtr<DevANO>(copy.release())->performExecute();
    EXPECT_TRUE(copy.isNull());
    EXPECT_EQ(log.getLines(), (Lines{"ano", "~ano"}));
}

TEST(DevANOQueueEntry, AssignmentDestroysWhatTheTargetHeldAndEmptiesTheSource)
{
    Journal log;
    DevANOQueueEntry target{ObjPtr<DevANO>(recordingANO(log, "target"))};
    DevANOQueueEntry const source{ObjPtr<DevANO>(recordingANO(log, "source"))};
    target = source;
    EXPECT_TRUE(source.isNull());
    EXPECT_EQ(log.getLines(), Lines{"~target"});
    ASSERT_FALSE(target.isNull());
    ObjPtr<DevANO>(target.release())->performExecute();
    EXPECT_EQ(log.getLines(), (Lines{"~target", "source", "~source"}));
}

TEST(DevANOQueueEntry, SelfAssignmentKeepsTheANO)
{
    Journal log;
    DevANOQueueEntry entry{ObjPtr<DevANO>(recordingANO(log, "ano"))};
    DevANOQueueEntry const &same = entry;
    entry = same;
    EXPECT_FALSE(entry.isNull());
    EXPECT_EQ(log.getLines(), Lines{});
}

TEST(DevANOQueueEntry, DestroysTheANOThatItHolds)
{
    Journal log;
    {
        DevANOQueueEntry const entry{ObjPtr<DevANO>(recordingANO(log, "ano"))};
    }
    EXPECT_EQ(log.getLines(), Lines{"~ano"});
}

TEST(DevANOQueue, ACapacityOfZeroNeverBlocksAProducer)
{
    DevANOQueue queue("test", 0);
    Journal log;
    for (int i = 0; i < 5000; ++i)
        queue.produce(DevANOQueueEntry(ObjPtr<DevANO>(recordingANO(log, "ano"))));
    EXPECT_EQ(queue.getSize(), 5000u);
    DevANOQueueEntry entry;
    while (queue.tryConsume(entry)) {
    }
}

TEST(DevANOQueue, TryProduceLeavesTheEntryUntouchedIfTheQueueIsFull)
{
    DevANOQueue queue("test", 1);
    Journal log;
    DevANOQueueEntry first{ObjPtr<DevANO>(recordingANO(log, "first"))};
    DevANOQueueEntry second{ObjPtr<DevANO>(recordingANO(log, "second"))};
    EXPECT_TRUE(queue.tryProduce(first));
    EXPECT_TRUE(first.isNull());
    EXPECT_FALSE(queue.tryProduce(second));
    EXPECT_FALSE(second.isNull());
    EXPECT_TRUE(queue.tryConsume(first));
}

TEST(DevReceiverWait, APostBeforeTheWaitOfTheSenderIsRemembered)
{
    DevReceiverWait receiver("rendezvous");
    DevSenderWait sender(receiver);
    receiver.post();
    sender.wait();
    sender.post();
    receiver.wait();
}

TEST(DevReceiverWait, ASenderThatArrivesFirstWaitsForTheReceiver)
{
    DevReceiverWait receiver("rendezvous");
    DevSenderWait sender(receiver);
    std::binary_semaphore coming{0};
    bool stoodStill = false; // only the rendezvous orders the accesses
    std::thread serving([&] {
        coming.acquire();
        receiver.post();
        receiver.wait();
        EXPECT_TRUE(stoodStill);
    });
    coming.release();
    sender.wait();
    stoodStill = true;
    sender.post();
    serving.join();
}

TEST(DevReceiverWait, AReceiverThatArrivesFirstWaitsForItsRelease)
{
    DevReceiverWait receiver("rendezvous");
    DevSenderWait sender(receiver);
    std::binary_semaphore arrived{0};
    bool letGo = false;
    std::thread serving([&] {
        receiver.post();
        arrived.release();
        receiver.wait();
        EXPECT_TRUE(letGo);
    });
    arrived.acquire();
    sender.wait();
    letGo = true;
    sender.post();
    serving.join();
}

} // namespace
} // namespace ZvTest
