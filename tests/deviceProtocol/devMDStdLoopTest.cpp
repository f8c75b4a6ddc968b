// The loop of a device's thread, run by the test: which requests it serves and when it works.

#include "recording.h"
#include "testing/asleep.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <thread>

namespace ZvTest {
namespace {

/// Body that works as the test says, and logs its failures.
class Working : public DevMDStdLoopThreadProtocol
{
public:
    Working(RCShdPtr<DevMDStdFifo> const &fifo, Journal &log, std::function<double(Working &)> work)
        : DevMDStdLoopThreadProtocol(fifo), _log(log), _work(std::move(work))
    {}

    double performWork() override { return _work(*this); }
    void performFailed(std::exception_ptr const &failure) override
    {
        _log.add("failed: " + messageOf(failure));
    }

private:
    Journal &_log;
    std::function<double(Working &)> _work;
};

class DevMDStdLoopTest : public testing::Test
{
protected:
    ~DevMDStdLoopTest() noexcept override {} // destructors of members may throw

    void stopBehind(DevMDStdLoopThreadProtocol &body)
    {
        produce(*_fifo, makeANO([&body] { body.performStop(nullptr); }));
    }

    Journal _log;
    RCShdPtr<DevMDStdFifo> _fifo = makeShd<DevMDStdFifo>();
};

TEST_F(DevMDStdLoopTest, WithoutWorkItServesUntilItIsStopped)
{
    DevMDStdLoopThreadProtocol body(_fifo);
    produce(*_fifo, recordingANO(_log, "one"));
    stopBehind(body);
    produce(*_fifo, recordingANO(_log, "behind"));
    body.performExecute(nullptr);
    EXPECT_EQ(_log.getLines(), (Lines{"one", "~one"}));
    EXPECT_TRUE(body.tryConsume());
}

TEST_F(DevMDStdLoopTest, WorksBeforeTheFirstRequestAndAfterEachOne)
{
    Working body(_fifo, _log, [this](Working &) {
        _log.add("work");
        return Working::NO_WORK;
    });
    produce(*_fifo, makeANO([this] { _log.add("one"); }));
    produce(*_fifo, makeANO([this] { _log.add("two"); }));
    stopBehind(body);
    body.performExecute(nullptr);
    EXPECT_EQ(_log.getLines(), (Lines{"work", "one", "work", "two", "work"}));
}

TEST_F(DevMDStdLoopTest, WhileThereIsMoreToDoItNeitherSleepsNorStarvesItsQueue)
{
    int nbPieces = 0;
    Working body(_fifo, _log, [&](Working &self) -> double {
        _log.add("piece");
        if (++nbPieces == 4)
            self.performStop(nullptr);
        return 0;
    });
    produce(*_fifo, makeANO([this] { _log.add("one"); }));
    body.performExecute(nullptr);
    EXPECT_EQ(_log.getLines(), (Lines{"piece", "one", "piece", "piece", "piece"}));
}

TEST_F(DevMDStdLoopTest, WorksAgainWhenItsTimeIsOver)
{
    int nbPieces = 0;
    Working body(_fifo, _log, [&](Working &self) {
        if (++nbPieces == 3)
            self.performStop(nullptr);
        return 0.001; // no request arrives
    });
    body.performExecute(nullptr);
    EXPECT_EQ(nbPieces, 3);
}

TEST_F(DevMDStdLoopTest, DoesNotWorkAgainBeforeItsTimeIsOver)
{
    std::atomic<int> nbPieces{0};
    std::atomic<bool> hasEnded{false};
    std::atomic<long> number{0};
    Working body(_fifo, _log, [&](Working &self) {
        if (++nbPieces == 2)
            self.performStop(nullptr);
        return 1e9;
    });
    std::thread device([&] {
        number = threadNumber();
        body.performExecute(nullptr);
        hasEnded = true;
    });
    while (!hasEnded && (!nbPieces || !isAsleep(number)))
        std::this_thread::yield();
    EXPECT_EQ(nbPieces, 1);
    stopBehind(body);
    device.join();
    drain(*_fifo);
}

TEST_F(DevMDStdLoopTest, ARequestEndsTheWaitForTheNextWork)
{
    std::binary_semaphore waiting{0};
    Working body(_fifo, _log, [&](Working &) {
        waiting.release();
        return 1e9;
    });
    std::thread device([&] { body.performExecute(nullptr); });
    waiting.acquire();
    stopBehind(body);
    device.join();
}

TEST_F(DevMDStdLoopTest, FailedWorkIsHandledByTheDeviceAndDelaysNoRequest)
{
    Working body(_fifo, _log, [](Working &) -> double { throw std::runtime_error("work"); });
    produce(*_fifo, recordingANO(_log, "one"));
    stopBehind(body);
    body.performExecute(nullptr);
    EXPECT_EQ(_log.getLines(), (Lines{"failed: work", "one", "~one", "failed: work"}));
}

TEST_F(DevMDStdLoopTest, FailedWorkIsNotRepeatedBeforeTheNextRequest)
{
    std::atomic<int> nbFailures{0};
    std::atomic<bool> hasEnded{false};
    std::atomic<long> number{0};
    Working body(_fifo, _log, [&](Working &self) -> double {
        if (++nbFailures == 2)
            self.performStop(nullptr);
        throw std::runtime_error("work");
    });
    std::thread device([&] {
        number = threadNumber();
        body.performExecute(nullptr);
        hasEnded = true;
    });
    while (!hasEnded && (!nbFailures || !isAsleep(number)))
        std::this_thread::yield();
    EXPECT_EQ(nbFailures, 1);
    stopBehind(body);
    device.join();
    drain(*_fifo);
}

TEST_F(DevMDStdLoopTest, TimedConsumeExecutesOneRequestOrNone)
{
    DevMDStdLoopThreadProtocol body(_fifo);
    EXPECT_FALSE(body.timedConsume(0.001));
    ObjPtr<DevANO> ano(recordingANO(_log, "one"));
    ano->setACO(recordingACO(_log, "aco"));
    produce(*_fifo, ano);
    EXPECT_TRUE(body.timedConsume(3600));
    EXPECT_EQ(_log.getLines(), (Lines{"one", "aco", "~aco", "~one"}));
}

} // namespace
} // namespace ZvTest
