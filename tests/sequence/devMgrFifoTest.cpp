#include "resmgt/deviceManager/devMgrFifo.h"

#include "recordingDevice.h"
#include "zvbase/assertions.h"
#include "zvbase/rcEx.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <semaphore>
#include <thread>

namespace ZvTest {

using namespace Zv;

namespace {

class LoggingANO final : public DevANO
{
public:
    LoggingANO(std::string name, Lines &log) : _name(std::move(name)), _log(log) {}
    ~LoggingANO() override { _log.push_back(_name + " gone"); }
    void performExecute() override { _log.push_back(_name); }

private:
    std::string _name;
    Lines &_log;
};

void produce(DevMgrFifo &fifo, std::string const &name, Lines &log)
{
    DevANOQueueEntry entry(makeObj<LoggingANO>(name, log));
    fifo.produce(entry);
    EXPECT_TRUE(entry.isNull());
}

void executeNext(DevMgrFifo &fifo)
{
    DevANOQueueEntry entry = fifo.consume();
    ObjPtr<DevANO> const ano = entry.release();
    ano->performExecute();
}

TEST(DevMgrFifoTest, IsFirstInFirstOut)
{
    Lines log;
    RCShdPtr<DevMgrFifo> const fifo(new DevMgrFifo(25));
    produce(*fifo, "a", log);
    produce(*fifo, "b", log);
    executeNext(*fifo);
    executeNext(*fifo);
    EXPECT_EQ(log, (Lines{"a", "a gone", "b", "b gone"}));
}

TEST(DevMgrFifoTest, AnEmptyOneLeavesTheEntryAsItWas)
{
    Lines log;
    RCShdPtr<DevMgrFifo> const fifo(new DevMgrFifo(1));
    DevANOQueueEntry entry(makeObj<LoggingANO>("kept", log));
    EXPECT_FALSE(fifo->tryConsume(entry));
    EXPECT_FALSE(entry.isNull());
    EXPECT_EQ(log, Lines());
}

TEST(DevMgrFifoTest, AFullOneBlocksItsProducerUntilOneIsTaken)
{
    Lines log;
    RCShdPtr<DevMgrFifo> const fifo(new DevMgrFifo(25));
    for (int i = 0; i < 25; ++i)
        produce(*fifo, std::to_string(i), log);
    std::binary_semaphore started(0);
    std::atomic<bool> hasProduced = false;
    std::thread producer([&] {
        started.release();
        produce(*fifo, "25", log);
        hasProduced = true;
    });
    started.acquire();
    EXPECT_FALSE(hasProduced);
    executeNext(*fifo);
    producer.join();
    EXPECT_TRUE(hasProduced);
    for (int i = 1; i <= 25; ++i)
        executeNext(*fifo);
    ASSERT_EQ(log.size(), 52u);
    EXPECT_EQ(log[50], "25");
}

TEST(DevMgrFifoTest, AClosedOneDestroysWhatItHoldsAndIsGiven)
{
    Lines log;
    RCShdPtr<DevMgrFifo> const fifo(new DevMgrFifo(1));
    produce(*fifo, "queued", log);
    fifo->close();
    EXPECT_EQ(log, (Lines{"queued gone"}));
    produce(*fifo, "late", log);
    produce(*fifo, "later", log);
    EXPECT_EQ(log, (Lines{"queued gone", "late gone", "later gone"}));
}

TEST(DevMgrFifoTest, CloseWakesABlockedProducer)
{
    Lines log;
    RCShdPtr<DevMgrFifo> const fifo(new DevMgrFifo(1));
    produce(*fifo, "queued", log);
    std::binary_semaphore started(0);
    Lines own; // written by the one thread that discards the entry
    std::thread producer([&] {
        started.release();
        produce(*fifo, "blocked", own);
    });
    started.acquire();
    fifo->close();
    producer.join();
    EXPECT_EQ(own, (Lines{"blocked gone"}));
}

TEST(DevMgrACOTest, PassesItsNotificationOnWithoutRunningIt)
{
    Lines log;
    RCShdPtr<DevMgrFifo> const fifo(new DevMgrFifo(25));
    DevMgrACO aco(makeObj<LoggingANO>("report", log), fifo);
    aco.performExecute();
    EXPECT_EQ(log, Lines());
    executeNext(*fifo);
    EXPECT_EQ(log, (Lines{"report", "report gone"}));
}

TEST(DevMgrACOTest, AFullFifoDoesNotBlockIt)
{
    Lines log;
    RCShdPtr<DevMgrFifo> const fifo(new DevMgrFifo(1));
    produce(*fifo, "queued", log);
    DevMgrACO aco(makeObj<LoggingANO>("report", log), fifo);
    aco.performExecute();
    executeNext(*fifo);
    executeNext(*fifo);
    EXPECT_EQ(log, (Lines{"queued", "queued gone", "report", "report gone"}));
}

TEST(DevMgrACOTest, TakesANotificationThatIsNotRunWithIt)
{
    Lines log;
    {
        RCShdPtr<DevMgrFifo> const fifo(new DevMgrFifo(25));
        DevMgrACO const aco(makeObj<LoggingANO>("report", log), fifo);
    }
    EXPECT_EQ(log, (Lines{"report gone"}));
}

TEST(DevMgrACOTest, ASecondExecutionThrowsANullPointerInTheCaller)
{
    Lines log;
    RCShdPtr<DevMgrFifo> const fifo(new DevMgrFifo(25));
    DevMgrACO aco(makeObj<LoggingANO>("report", log), fifo);
    aco.performExecute();
    EXPECT_THROW(aco.performExecute(), RCEx::ExNullPtr);
    executeNext(*fifo);
    DevANOQueueEntry entry;
    EXPECT_FALSE(fifo->tryConsume(entry));
}

TEST(DevMgrACOTest, WithoutAFifoItIsANullPointer)
{
    Lines log;
    DevMgrACO aco(makeObj<LoggingANO>("report", log), nullptr);
    EXPECT_THROW(aco.performExecute(), RCEx::ExNullPtr);
}

} // namespace
} // namespace ZvTest
