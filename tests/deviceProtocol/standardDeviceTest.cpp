// The base class of devices: steps, completions that the device takes, reports, work and failures.

#include "recording.h"

#include "resmgt/threads/mtThreadMgr.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

namespace ZvTest {
namespace {

class Camera : public DevMDStdDevice
{
public:
    explicit Camera(Journal &log) : DevMDStdDevice("camera"), _log(log) {}
    Camera(Journal &log, RCShdPtr<DevMDStdFifo> const &fifo, ObjPtr<DevMDStdThreadProtocol> body)
        : DevMDStdDevice("camera", fifo, body), _log(log)
    {}

    using DevMDStdDevice::getFifo;
    using DevMDStdDevice::reportAbort;
    using DevMDStdDevice::reportRecover;
    using DevMDStdDevice::takeCompletion;

    ObjPtr<DevACO> taken; // the completion of a start or stop, if `isSlow`
    bool isSlow = false;
    bool isBusy = false;

protected:
    void open() override
    {
        _thread = std::this_thread::get_id();
        note("open");
    }
    void close() override { note("close"); }
    void start() override
    {
        note("start");
        if (isSlow)
            taken = takeCompletion();
    }
    void sync() override { note("sync"); }
    void recover() override { note("recover"); }
    void stop() override
    {
        note("stop");
        if (isSlow)
            taken = takeCompletion();
    }
    void abort() override
    {
        note("abort");
        throw std::runtime_error("abort");
    }
    double performWork() override
    {
        if (!isBusy)
            return DevMDStdDevice::performWork();
        isBusy = false;
        note("work");
        return 0;
    }
    void performFailed(std::exception_ptr const &failure) override
    {
        EXPECT_THROW(DevMDStdDevice::performFailed(failure), std::runtime_error);
        note("failed");
    }

private:
    void note(std::string const &what)
    {
        _log.add(std::this_thread::get_id() == _thread ? what : what + " on a foreign thread");
    }

    Journal &_log;
    std::thread::id _thread;
};

class StandardDevice : public testing::Test
{
protected:
    ~StandardDevice() noexcept override {} // destructors of members may throw

    Journal _log;
    RCShdPtr<Camera> _device = makeShd<Camera>(_log);
};

TEST_F(StandardDevice, MakesEachStepOnItsOwnThreadAndThenItsCompletion)
{
    _device->performOpen();
    _device->performStart(recordingACO(_log, "started"), nullptr, nullptr);
    _device->performSync(recordingACO(_log, "locked"), DtTimeMark());
    _device->performSync(recordingACO(_log, "locked too"), DtTime());
    _device->performRecover(recordingACO(_log, "recovered"));
    _device->performStop(recordingACO(_log, "stopped"));
    _device->performClose();
    EXPECT_EQ(_log.getLines(),
              (Lines{"open", "start", "started", "~started", "sync", "locked", "~locked", "sync",
                     "locked too", "~locked too", "recover", "recovered", "~recovered", "stop",
                     "stopped", "~stopped", "close"}));
}

TEST_F(StandardDevice, AStepIsSentToAFullFifoBehindTheRequests)
{
    _device->performOpen();
    Turnstile turnstile;
    produce(*_device->getFifo(), makeANO([&] { turnstile.pass(); }));
    turnstile.waitForArrival();
    Lines expected = {"open"};
    for (int i = 0; i < DevMDStdFifo::DEFAULT_CAPACITY; ++i) {
        produce(*_device->getFifo(), makeANO([this] { _log.add("request"); }));
        expected.push_back("request");
    }
    _device->performStart(nullptr, nullptr, nullptr);
    _device->performSync(nullptr, DtTimeMark());
    _device->performSync(nullptr, DtTime());
    _device->performRecover(nullptr);
    _device->performStop(nullptr);
    turnstile.open();
    _device->performClose();
    for (char const *step : {"start", "sync", "sync", "recover", "stop", "close"})
        expected.push_back(step);
    EXPECT_EQ(_log.getLines(), expected);
}

TEST_F(StandardDevice, CanTellAMarkFromALatency)
{
    class Precise : public Camera
    {
    public:
        explicit Precise(Journal &log) : Camera(log), _log(log) {}

    protected:
        void syncToMark(DtTimeMark const &mark) override
        {
            _log.add("mark " + std::to_string(mark.getPosition().getCount()));
        }
        void syncWithLatency(DtTime const &latency) override
        {
            _log.add("latency " + std::to_string(latency.getCount()));
        }

    private:
        Journal &_log;
    };
    RCShdPtr<Precise> const device = makeShd<Precise>(_log);
    device->performOpen();
    device->performSync(nullptr, DtTimeMark(DtTime(7, Rational(1, 1)), 0));
    device->performSync(nullptr, DtTime(8, Rational(1, 1)));
    device->performClose();
    EXPECT_EQ(_log.getLines(), (Lines{"open", "mark 7", "latency 8", "close"}));
}

TEST_F(StandardDevice, AStepWithATakenCompletionIsFinishedWhenThatIsExecuted)
{
    _device->isSlow = true;
    _device->performOpen();
    _device->performStart(recordingACO(_log, "started"), nullptr, nullptr);
    produce(*_device->getFifo(), makeANO([this] { _device->taken->performExecute(); }));
    _device->performClose();
    EXPECT_EQ(_log.getLines(), (Lines{"open", "start", "started", "close"}));
}

TEST_F(StandardDevice, NoCompletionIsTakenOutsideOfAStep)
{
    auto const refused = [this] {
        try {
            ObjPtr<DevACO>(_device->takeCompletion());
        } catch (AssertionFailed const &failure) {
            return std::string(failure.getExpression());
        }
        return std::string();
    };
    EXPECT_EQ(refused(), "_request != nullptr");
    _device->performOpen();
    _device->performAbort(nullptr); // the step throws, which ends it, too
    std::string afterwards;
    produce(*_device->getFifo(), makeANO([&] { afterwards = refused(); }));
    _device->performClose();
    EXPECT_EQ(afterwards, "_request != nullptr");
}

TEST_F(StandardDevice, ReportsFromStartOnAsOftenAsItLikes)
{
    _device->reportRecover(); // has no effect
    _device->reportAbort();
    _device->performOpen();
    _device->performStart(nullptr, recordingANO(_log, "lost"), recordingANO(_log, "given up"));
    produce(*_device->getFifo(), makeANO([this] {
        _device->reportRecover();
        _device->reportRecover();
        _device->reportAbort();
    }));
    _device->performClose();
    EXPECT_EQ(_log.getLines(), (Lines{"open", "start", "lost", "lost", "given up", "close"}));
}

TEST_F(StandardDevice, ReportsNothingOnceItHasStoppedOrAborted)
{
    auto const report = [this] {
        produce(*_device->getFifo(), makeANO([this] {
            _device->reportRecover();
            _device->reportAbort();
        }));
    };
    auto const start = [this] {
        _device->performStart(nullptr, recordingANO(_log, "lost"), recordingANO(_log, "given up"));
    };
    _device->performOpen();
    start();
    _device->performStop(recordingACO(_log, "stopped"));
    report();
    start(); // begins another sequence
    report();
    _device->performClose();
    EXPECT_EQ(_log.getLines(), (Lines{"open", "start", "stop", "~lost", "~given up", "stopped",
                                      "~stopped", "start", "lost", "given up", "close"}));
}

TEST_F(StandardDevice, ReportsUntilAStepThatIsFinishedLaterIsFinished)
{
    _device->isSlow = true;
    _device->performOpen();
    _device->performStart(nullptr, nullptr, recordingANO(_log, "given up"));
    _device->performStop(recordingACO(_log, "stopped"));
    produce(*_device->getFifo(), makeANO([this] {
        _device->reportAbort();
        _device->taken->performExecute();
    }));
    _device->performClose();
    EXPECT_EQ(_log.getLines(), (Lines{"open", "start", "stop", "given up", "stopped", "close"}));
}

TEST_F(StandardDevice, ReportsNothingOnceItsAbortHasThrown)
{
    _device->performOpen();
    _device->performStart(nullptr, recordingANO(_log, "lost"), recordingANO(_log, "given up"));
    _device->performAbort(recordingACO(_log, "aborted"));
    produce(*_device->getFifo(), makeANO([this] {
        _device->reportRecover();
        _device->reportAbort();
    }));
    _device->performClose();
    EXPECT_EQ(_log.getLines(), (Lines{"open", "start", "abort", "~lost", "~given up", "~aborted",
                                      "failed", "close"}));
}

TEST_F(StandardDevice, AStepAfterATakenCompletionIsFinishedWhenItReturns)
{
    _device->isSlow = true;
    _device->performOpen();
    _device->performStart(nullptr, nullptr, recordingANO(_log, "given up"));
    produce(*_device->getFifo(), makeANO([this] { _device->isSlow = false; }));
    _device->performStop(nullptr);
    produce(*_device->getFifo(), makeANO([this] { _device->reportAbort(); }));
    _device->performClose();
    EXPECT_EQ(_log.getLines(), (Lines{"open", "start", "stop", "~given up", "close"}));
}

TEST_F(StandardDevice, WorksBetweenRequestsAndHandlesItsFailures)
{
    _device->isBusy = true; // set before the thread starts, which works before it opens the device
    _device->performOpen();
    _device->performAbort(recordingACO(_log, "aborted"));
    _device->performClose();
    EXPECT_EQ(_log.getLines(),
              (Lines{"work on a foreign thread", "open", "abort", "~aborted", "failed", "close"}));
}

TEST_F(StandardDevice, TakesABodyOfItsOwn)
{
    class Body : public DevMDStdLoopThreadProtocol
    {
    public:
        Body(RCShdPtr<DevMDStdFifo> const &fifo, Journal &log)
            : DevMDStdLoopThreadProtocol(fifo), _log(log)
        {}
        void performStop(MtThread *thread) override
        {
            _log.add("stop asked");
            DevMDStdLoopThreadProtocol::performStop(thread);
        }

    private:
        Journal &_log;
    };
    auto const fifo = makeShd<DevMDStdFifo>(1);
    RCShdPtr<Camera> const device =
        makeShd<Camera>(_log, fifo, ObjPtr<DevMDStdThreadProtocol>(new Body(fifo, _log)));
    EXPECT_EQ(device->getFifo(), fifo);
    device->performOpen();
    device->performClose();
    EXPECT_EQ(_log.getLines(), (Lines{"open", "close", "stop asked"}));
}

/// Camera whose opening or closing throws.
template <class Exception>
class Broken : public Camera
{
public:
    Broken(Journal &log, bool isOpening, Exception const &exception)
        : Camera(log), _isOpening(isOpening), _exception(exception)
    {}

protected:
    void open() override
    {
        Camera::open();
        if (_isOpening)
            throw _exception;
    }
    void close() override
    {
        Camera::close();
        if (!_isOpening)
            throw _exception;
    }

private:
    bool _isOpening;
    Exception _exception;
};

TEST_F(StandardDevice, ThrowsWhatItsOpeningThrowsAndLeavesNoThread)
{
    auto const nbThreads = MtThreadMgr::getInstance().getNbThreads();
    auto const noCable = makeShd<Broken<std::runtime_error>>(_log, true, std::runtime_error("-"));
    EXPECT_THROW(noCable->performOpen(), std::runtime_error);
    auto const number = makeShd<Broken<int>>(_log, true, 42);
    EXPECT_THROW(number->performOpen(), int);
    EXPECT_EQ(MtThreadMgr::getInstance().getNbThreads(), nbThreads);
    EXPECT_EQ(_log.getLines(), (Lines{"open", "open"}));
}

TEST_F(StandardDevice, ThrowsWhatItsClosingThrewAfterItsThreadHasEnded)
{
    auto const device = makeShd<Broken<std::runtime_error>>(_log, false, std::runtime_error("-"));
    device->performOpen();
    EXPECT_THROW(device->performClose(), std::runtime_error);
    EXPECT_THROW(device->performClose(), AssertionFailed) << "its thread does not run";
    produce(*device->getFifo(), recordingANO(_log, "late"));
    EXPECT_EQ(_log.getLines(), (Lines{"open", "close", "~late"}));
}

TEST_F(StandardDevice, ByDefaultDoesNothingAndHasNoLatency)
{
    class Idle : public DevMDStdDevice
    {
    public:
        Idle() : DevMDStdDevice("idle") {}
    };
    RCShdPtr<Idle> const idle = makeShd<Idle>();
    EXPECT_EQ(idle->getLatency(), DtTime());
    EXPECT_EQ(idle->getMark(), DtTimeMark());
    EXPECT_TRUE(idle->performGetStreams().atEnd());
    EXPECT_TRUE(idle->getPropertyIter().atEnd());
    idle->performOpen();
    idle->performStart(recordingACO(_log, "started"), nullptr, nullptr);
    idle->performSync(recordingACO(_log, "locked"), DtTime());
    idle->performRecover(recordingACO(_log, "recovered"));
    idle->performAbort(recordingACO(_log, "aborted"));
    idle->performStop(recordingACO(_log, "stopped"));
    idle->performClose();
    EXPECT_EQ(_log.getLines(), (Lines{"started", "~started", "locked", "~locked", "recovered",
                                      "~recovered", "aborted", "~aborted", "stopped", "~stopped"}));
}

} // namespace
} // namespace ZvTest
