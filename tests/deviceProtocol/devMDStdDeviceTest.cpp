// Whole devices with real threads: opening, sequences, closing, and failures in between.

#include "recording.h"

#include "testing/aborted.h"

#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/rtPriorities.h"
#include "testing/asleep.h"
#include "testing/refusedThreads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace ZvTest {
namespace {

/// Body of the device's thread. It logs its beginning, its stop and its end.
class Body : public DevMDStdLoopThreadProtocol
{
public:
    Body(RCShdPtr<DevMDStdFifo> const &fifo, Journal &log)
        : DevMDStdLoopThreadProtocol(fifo), _log(log)
    {}
    ~Body() override { _log.add("~body"); }

    void performExecute(MtThread *thread) override
    {
        _log.add("body of " + std::string(thread->getName().getChars()));
        DevMDStdLoopThreadProtocol::performExecute(thread);
        _log.add("body ended");
    }
    void performStop(MtThread *thread) override
    {
        _log.add("stop asked");
        DevMDStdLoopThreadProtocol::performStop(thread);
    }

protected:
    void performFailed(std::exception_ptr const &failure) override
    {
        _log.add("failed: " + messageOf(failure));
    }

private:
    Journal &_log;
};

/// Handler of the requests, on the device's thread.
struct Handler
{
    Journal &log;
    std::thread::id thread{};
    std::function<void()> onClose = [] {};
    ObjPtr<DevANO> recoverNotification{};
    ObjPtr<DevANO> abortNotification{};

    void note(std::string const &what)
    {
        log.add(std::this_thread::get_id() == thread ? what : what + " on a foreign thread");
    }
    void open()
    {
        thread = std::this_thread::get_id();
        note("open");
    }
    void close()
    {
        note("close");
        onClose();
    }
    void start(ObjPtr<DevANO> recover, ObjPtr<DevANO> abort)
    {
        recoverNotification = recover;
        abortNotification = abort;
        note("start");
    }
    void sync(DtTimeMark const &mark)
    {
        note("sync to mark " + std::to_string(mark.getPosition().getCount()));
    }
    void sync(DtTime const &latency)
    {
        note("sync with latency " + std::to_string(latency.getCount()));
    }
    void recover() { note("recover"); }
    void stop() { note("stop"); }
    void abort() { note("abort"); }
};

class Device : public DevMDStdAccessPrtcl, public DevMDStdSyncSeqPrtcl
{
public:
    Device(Handler &handler, RCShdPtr<DevMDStdFifo> const &fifo)
        : Device(fifo, ObjPtr<DevMDStdThreadProtocol>(new Body(fifo, handler.log)),
                 makeAccessANOFactory(handler), makeSyncSeqANOFactory(handler))
    {}
    Device(RCShdPtr<DevMDStdFifo> const &fifo, ObjPtr<DevMDStdThreadProtocol> body,
           ObjPtr<DevMDStdAccessANOFactory> access,
           ObjPtr<DevMDStdSyncSeqANOFactory> syncSeq = nullptr)
        : DevMDStdAccessPrtcl("camera", fifo, body, access),
          DevMDStdSyncSeqPrtcl("camera", fifo, syncSeq)
    {}

    DtTime getLatency() override { return DtTime(); }
    DtTimeMark getMark() override { return DtTimeMark(); }
};

class DevMDStdDeviceTest : public testing::Test
{
protected:
    ~DevMDStdDeviceTest() noexcept override {} // destructors of members may throw

    Journal _log;
    Handler _handler{_log};
    RCShdPtr<DevMDStdFifo> _fifo = makeShd<DevMDStdFifo>();
    RCShdPtr<Device> _device = makeShd<Device>(_handler, _fifo);
};

TEST_F(DevMDStdDeviceTest, OpenReturnsAfterTheOpenRequestHasRunOnTheDevicesThread)
{
    _device->performOpen();
    EXPECT_EQ(_log.getLines(), (Lines{"body of camera", "open"}));
    EXPECT_NE(_handler.thread, std::this_thread::get_id());
    _device->performClose();
}

TEST_F(DevMDStdDeviceTest, CloseReturnsAfterTheThreadHasEnded)
{
    _device->performOpen();
    _device->performClose(); // the close request wakes the thread in consume
    EXPECT_EQ(_log.getLines(),
              (Lines{"body of camera", "open", "close", "stop asked", "body ended"}));
    _device = nullptr;
    EXPECT_EQ(_log.getLines().back(), "~body");
}

TEST_F(DevMDStdDeviceTest, TheStopReachesAThreadThatIsBlocked)
{
    // A body that must be told to stop before it takes another request after the close request.
    class Careful : public DevMDStdThreadProtocol
    {
    public:
        Careful(RCShdPtr<DevMDStdFifo> const &fifo, int &nbRounds)
            : DevMDStdThreadProtocol(fifo), _nbRounds(nbRounds)
        {}
        void performExecute(MtThread *) override
        {
            for (; !_stop; ++_nbRounds)
                consume();
        }
        void performStop(MtThread *) override { _stop = true; }

    private:
        int &_nbRounds;
        bool _stop = false; // only the rendezvous orders the accesses
    };
    int nbRounds = 0;
    RCShdPtr<Device> const device =
        makeShd<Device>(_fifo, ObjPtr<DevMDStdThreadProtocol>(new Careful(_fifo, nbRounds)),
                        makeAccessANOFactory(_handler), makeSyncSeqANOFactory(_handler));
    device->performOpen();
    device->performClose();
    EXPECT_EQ(nbRounds, 2);
}

TEST_F(DevMDStdDeviceTest, EverythingQueuedBeforeCloseIsExecuted)
{
    _device->performOpen();
    for (int i = 0; i < 50; ++i)
        produce(*_fifo, makeANO([this, i] { _handler.note(std::to_string(i)); }));
    _device->performClose();
    Lines expected{"body of camera", "open"};
    for (int i = 0; i < 50; ++i)
        expected.push_back(std::to_string(i));
    for (char const *line : {"close", "stop asked", "body ended"})
        expected.push_back(line);
    EXPECT_EQ(_log.getLines(), expected);
}

TEST_F(DevMDStdDeviceTest, EachStepOfASequenceRunsOnTheDevicesThreadAndThenItsCompletion)
{
    _device->performOpen();
    _device->performStart(recordingACO(_log, "started"), recordingANO(_log, "recoverANO"),
                          recordingANO(_log, "abortANO"));
    _device->performSync(recordingACO(_log, "locked"), DtTimeMark(DtTime(7, Rational(1, 1)), 0));
    _device->performSync(recordingACO(_log, "locked too"), DtTime(8, Rational(1, 1)));
    _device->performRecover(recordingACO(_log, "recovered"));
    _device->performStop(recordingACO(_log, "stopped"));
    _device->performAbort(recordingACO(_log, "aborted"));
    _device->performClose();
    EXPECT_EQ(_log.getLines(), (Lines{"body of camera", "open",        "start",
                                      "started",        "~started",    "sync to mark 7",
                                      "locked",         "~locked",     "sync with latency 8",
                                      "locked too",     "~locked too", "recover",
                                      "recovered",      "~recovered",  "stop",
                                      "stopped",        "~stopped",    "abort",
                                      "aborted",        "~aborted",    "close",
                                      "stop asked",     "body ended"}));

    // The device may execute both notifications at any time.
    _handler.recoverNotification->performExecute();
    EXPECT_EQ(_log.getLines().back(), "recoverANO");
    _handler.abortNotification->performExecute();
    EXPECT_EQ(_log.getLines().back(), "abortANO");
    _handler.recoverNotification = nullptr;
    _handler.abortNotification = nullptr;
}

TEST_F(DevMDStdDeviceTest, AStepReturnsWhenItIsQueued)
{
    ObjPtr<DevACO> aco(recordingACO(_log, "stopped"));
    _device->performStop(aco); // no thread serves the FIFO
    EXPECT_TRUE(aco.isNull());
    EXPECT_EQ(_log.getLines(), Lines{});
    _device->performOpen();
    EXPECT_TRUE(_log.has("~stopped"));
    _device->performClose();
}

TEST_F(DevMDStdDeviceTest, ADeviceMayTakeItsTimeOverAStep)
{
    class Slow : public DevMDStdSyncSeqANOFactory
    {
    public:
        explicit Slow(ObjPtr<DevACO> &taken) : _taken(taken) {}
        ObjPtrRet<DevMDStdANO> createStartANO(ObjPtr<DevANO>, ObjPtr<DevANO>) override
        {
            struct ANO : DevMDStdANO
            {
                explicit ANO(ObjPtr<DevACO> &aco) : taken(aco) {}
                void performExecute() override { taken = releaseACO(); }
                ObjPtr<DevACO> &taken;
            };
            return ObjPtrRet<DevMDStdANO>(new ANO(_taken));
        }
        ObjPtrRet<DevMDStdANO> createSyncANO(DtTimeMark const &) override { return nullptr; }
        ObjPtrRet<DevMDStdANO> createSyncANO(DtTime const &) override { return nullptr; }
        ObjPtrRet<DevMDStdANO> createRecoverANO() override { return nullptr; }
        ObjPtrRet<DevMDStdANO> createStopANO() override { return nullptr; }
        ObjPtrRet<DevMDStdANO> createAbortANO() override { return nullptr; }

    private:
        ObjPtr<DevACO> &_taken;
    };
    ObjPtr<DevACO> taken;
    RCShdPtr<Device> const device = makeShd<Device>(
        _fifo, ObjPtr<DevMDStdThreadProtocol>(new Body(_fifo, _log)),
        makeAccessANOFactory(_handler), ObjPtr<DevMDStdSyncSeqANOFactory>(new Slow(taken)));
    device->performOpen();
    device->performStart(recordingACO(_log, "started"), nullptr, nullptr);
    device->performClose();
    EXPECT_FALSE(_log.has("started"));
    ASSERT_FALSE(taken.isNull());
    taken->performExecute();
    EXPECT_EQ(_log.getLines().back(), "started");
}

TEST_F(DevMDStdDeviceTest, NullFactoriesAreNullPointerFailures)
{
    RCShdPtr<Device> const device =
        makeShd<Device>(_fifo, ObjPtr<DevMDStdThreadProtocol>(new Body(_fifo, _log)), nullptr);
    EXPECT_THROW(device->performOpen(), RCEx::ExNullPtr);
    EXPECT_THROW(device->performStop(nullptr), RCEx::ExNullPtr);
    RCShdPtr<Device> const withoutFifo = makeShd<Device>(_handler, RCShdPtr<DevMDStdFifo>());
    EXPECT_THROW(withoutFifo->performOpen(), RCEx::ExNullPtr);
    EXPECT_THROW(withoutFifo->performStop(nullptr), RCEx::ExNullPtr);
    RCShdPtr<Device> const withoutBody =
        makeShd<Device>(_fifo, nullptr, makeAccessANOFactory(_handler));
    EXPECT_THROW(withoutBody->performOpen(), RCEx::ExNullPtr);
}

TEST_F(DevMDStdDeviceTest, AnOpenWithoutABodyOrAFactoryClosesTheQueue)
{
    auto const expectClosed = [](ObjPtr<DevMDStdThreadProtocol> body,
                                 ObjPtr<DevMDStdAccessANOFactory> factory) {
        Journal log;
        RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
        RCShdPtr<Device> const device = makeShd<Device>(fifo, body, factory);
        EXPECT_THROW(device->performOpen(), RCEx::ExNullPtr);
        produce(*fifo, recordingANO(log, "request"));
        EXPECT_EQ(log.getLines(), Lines{"~request"});
    };
    expectClosed(nullptr, makeAccessANOFactory(_handler));
    expectClosed(ObjPtr<DevMDStdThreadProtocol>(new Body(_fifo, _log)), nullptr);
}

TEST_F(DevMDStdDeviceTest, ClosesTheQueueOnlyWithoutAThread)
{
    _device->performOpen();
    _device->closeUnopened();
    produce(*_fifo, makeANO([this] { _handler.note("served"); }));
    _device->performClose();
    EXPECT_TRUE(_log.has("served"));

    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    RCShdPtr<Device> const unopened = makeShd<Device>(_handler, fifo);
    unopened->closeUnopened();
    produce(*fifo, recordingANO(_log, "request"));
    EXPECT_TRUE(_log.has("~request"));
    makeShd<Device>(_handler, RCShdPtr<DevMDStdFifo>())->closeUnopened();
}

TEST_F(DevMDStdDeviceTest, OpensOnce)
{
    _device->performOpen();
    EXPECT_THROW(_device->performOpen(), RCEx::ExNullPtr);
    produce(*_fifo, makeANO([this] { _handler.note("still served"); }));
    _device->performClose();
    EXPECT_TRUE(_log.has("still served"));
    EXPECT_THROW(_device->performOpen(), RCEx::ExNullPtr);
}

TEST_F(DevMDStdDeviceTest, ClosingWhatIsNotOpenFailsWithoutWaiting)
{
    EXPECT_THROW(_device->performClose(), RCEx::ExNullPtr);
    _device->performOpen();
    _device->performClose();
    EXPECT_THROW(_device->performClose(), AssertionFailed);
}

class FailingAccessFactory : public DevMDStdAccessANOFactory
{
public:
    explicit FailingAccessFactory(bool returnsNull) : _returnsNull(returnsNull) {}

    ObjPtrRet<DevMDStdANO> createOpenANO() override
    {
        if (_returnsNull)
            return nullptr;
        throw std::runtime_error("no open request");
    }
    ObjPtrRet<DevMDStdANO> createCloseANO() override { return nullptr; }

private:
    bool _returnsNull;
};

TEST_F(DevMDStdDeviceTest, AnOpenThatFailsHalfWayLeavesNoThreadAndNoRelation)
{
    auto const nbThreads = MtThreadMgr::getInstance().getNbThreads();
    for (bool const returnsNull : {false, true}) {
        Journal log;
        RCShdPtr<Device> device = makeShd<Device>(
            _fifo, ObjPtr<DevMDStdThreadProtocol>(new Body(_fifo, log)),
            ObjPtr<DevMDStdAccessANOFactory>(new FailingAccessFactory(returnsNull)));
        if (returnsNull)
            EXPECT_THROW(device->performOpen(), RCEx::ExNullPtr);
        else
            EXPECT_THROW(device->performOpen(), std::runtime_error);
        EXPECT_EQ(log.getLines(),
                  (Lines{"body of camera", "stop asked", "body ended", "stop asked", "~body"}));
        EXPECT_EQ(MtThreadMgr::getInstance().getNbThreads(), nbThreads);
        EXPECT_THROW(device->performOpen(), RCEx::ExNullPtr);
        EXPECT_THROW(device->performClose(), RCEx::ExNullPtr);
        device = nullptr;
    }
}

TEST_F(DevMDStdDeviceTest, AnObserverThatFailsDoesNotHoldTheDevicesThread)
{
    struct Failing : DevMDStdFifoObs
    {
        void performProduced(DevANOQueue &, DevANOQueueEntry const &) override
        {
            throw std::runtime_error("observer");
        }
    };
    RCShdPtr<DevMDStdFifo> const fifo(new DevMDStdFifo(RCShdPtr<DevMDStdFifoObs>(new Failing)));
    RCShdPtr<Device> const device = makeShd<Device>(_handler, fifo);
    EXPECT_THROW(device->performOpen(), std::runtime_error);
    EXPECT_TRUE(_log.has("open"));
    EXPECT_TRUE(_log.has("body ended"));
}

TEST_F(DevMDStdDeviceTest, RequestsThatComeTooLateAreDestroyedUnrunAndAGetIsReleased)
{
    std::counting_semaphore<> produced{0};
    RCShdPtr<DevMDStdFifo> const fifo(
        new DevMDStdFifo(RCShdPtr<DevMDStdFifoObs>(new CountingObs(produced)), 0));
    Turnstile closing;
    _handler.onClose = [&] { closing.pass(); };
    RCShdPtr<Device> const device = makeShd<Device>(_handler, fifo);
    RCShdPtr<DevMDStdProperty<int>> const gain(new DevMDStdProperty<int>(
        "gain", "", 3,
        makePropertyANOFactory<int>([](int) { ADD_FAILURE() << "executed"; },
                                    [](int &) { ADD_FAILURE() << "executed"; }),
        fifo));

    device->performOpen();
    produced.acquire();
    std::thread client([&] { device->performClose(); });
    produced.acquire();
    closing.waitForArrival();
    gain->set(1);
    produced.acquire();
    std::thread reader([&] {
        int value = 0;
        try {
            gain->get(value);
            ADD_FAILURE() << "a value";
        } catch (DevPrtclEx::ExMDStdPropertyGet &failure) {
            EXPECT_STREQ(failure.getReason(), "Error while getting the value for gain");
        }
    });
    produced.acquire(); // the get is queued behind the close request
    device->performStop(recordingACO(_log, "stopped"));
    closing.open();
    client.join();
    reader.join();
    EXPECT_FALSE(_log.has("stop"));
    EXPECT_FALSE(_log.has("stopped"));
    EXPECT_TRUE(_log.has("~stopped"));

    gain->set(2); // queued after the end of the device
    int value = 0;
    EXPECT_THROW(gain->get(value), DevPrtclEx::ExMDStdPropertyGet);
}

TEST_F(DevMDStdDeviceTest, CloseWakesThreadsThatWaitForRoom)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>(1);
    Turnstile closing;
    _handler.onClose = [&] { closing.pass(); };
    RCShdPtr<Device> const device = makeShd<Device>(_handler, fifo);
    device->performOpen();
    std::thread client([&] { device->performClose(); });
    closing.waitForArrival();
    std::vector<std::thread> producers;
    for (int i = 0; i < 3; ++i)
        producers.emplace_back(
            [&] { produce(*fifo, makeANO([] { ADD_FAILURE() << "executed"; })); });
    closing.open();
    client.join();
    for (auto &producer : producers)
        producer.join();
}

TEST_F(DevMDStdDeviceTest, DestroyedOpenItEndsItsThreadWithoutTheCloseRequest)
{
    _device->performOpen();
    _device = nullptr;
    EXPECT_TRUE(_log.has("body ended"));
    EXPECT_FALSE(_log.has("close"));
    EXPECT_EQ(_log.getLines().back(), "~body");
}

TEST_F(DevMDStdDeviceTest, DestroyedOpenItDestroysWhatIsQueuedUnrun)
{
    _device->performOpen();
    Turnstile busy;
    produce(*_fifo, makeANO([&] { busy.pass(); }));
    busy.waitForArrival();
    produce(*_fifo, recordingANO(_log, "queued"));
    std::atomic<long> number{0};
    std::thread destroyer([&] {
        number = threadNumber();
        _device = nullptr;
    });
    while (!number)
        std::this_thread::yield();
    for (int nbAsleep = 0; !_log.has("~queued") && nbAsleep < 1000; nbAsleep += isAsleep(number))
        std::this_thread::yield();
    EXPECT_TRUE(_log.has("~queued"));
    busy.open();
    destroyer.join();
    EXPECT_FALSE(_log.has("queued"));
    EXPECT_TRUE(_log.has("body ended"));
}

TEST_F(DevMDStdDeviceTest, NeverOpenedItReleasesAReaderAndDestroysWhatIsQueued)
{
    std::counting_semaphore<> produced{0};
    RCShdPtr<DevMDStdFifo> const fifo(
        new DevMDStdFifo(RCShdPtr<DevMDStdFifoObs>(new CountingObs(produced))));
    RCShdPtr<Device> device = makeShd<Device>(_handler, fifo);
    auto const gain = makeProperty<int>(
        "gain", "", fifo, [](int &) { ADD_FAILURE() << "executed"; },
        [](int) { ADD_FAILURE() << "executed"; });
    gain->set(1);
    produced.acquire();
    std::thread reader([&] {
        int value = 0;
        EXPECT_THROW(gain->get(value), DevPrtclEx::ExMDStdPropertyGet);
    });
    produced.acquire();
    device = nullptr;
    reader.join();
    produce(*fifo, recordingANO(_log, "late"));
    EXPECT_EQ(_log.getLines().back(), "~late");
}

using DeviceEndsDeathTest = DevMDStdDeviceTest;

TEST_F(DeviceEndsDeathTest, ARequestThatThrowsEndsTheProcess)
{
    EXPECT_EXIT(
        {
            _device = makeShd<Device>(_fifo, makeObj<DevMDStdLoopThreadProtocol>(_fifo),
                                      makeAccessANOFactory(_handler));
            _device->performOpen();
            produce(*_fifo, makeANO([] { throw std::runtime_error("lens lost"); }));
            std::binary_semaphore(0).acquire();
        },
        aborted(), "lens lost");
    EXPECT_EXIT(
        {
            _device = makeShd<Device>(_fifo, makeObj<DevMDStdLoopThreadProtocol>(_fifo),
                                      makeAccessANOFactory(_handler));
            _device->performOpen();
            produce(*_fifo, makeANO([] { throw DevPrtclEx::ExNameNotUnique("lens", 1); }));
            std::binary_semaphore(0).acquire();
        },
        aborted(), "");
}

TEST_F(DeviceEndsDeathTest, ItsLastReferenceMustNotBeReleasedOnItsOwnThread)
{
    EXPECT_EXIT(
        {
            class Lonely : public DevMDStdDevice
            {
            public:
                Lonely() : DevMDStdDevice("lonely") {}
                using DevMDStdDevice::getFifo;
            };
            RCShdPtr<Lonely> device = makeShd<Lonely>();
            RCShdPtr<DevMDStdFifo> const fifo = device->getFifo();
            device->performOpen();
            Turnstile held;
            produce(*fifo, makeANO([device, &held] { held.pass(); }));
            held.waitForArrival();
            device = nullptr;
            held.open();
            std::binary_semaphore(0).acquire();
        },
        aborted(), "isOnItsOwnThread");
}

TEST_F(DeviceEndsDeathTest, AThreadThatItsDeviceHasLeftEndsWithItsRequest)
{
    EXPECT_EXIT(
        {
            struct Watched : Body
            {
                using Body::Body;
                void performExecute(MtThread *thread) override
                {
                    try {
                        Body::performExecute(thread);
                    } catch (AssertionFailed const &failure) {
                        std::string const expression = failure.getExpression();
                        std::_Exit(expression == "!isOnItsOwnThread" ? 0 : 1);
                    }
                    std::_Exit(2);
                }
            };
            _device = makeShd<Device>(_fifo, makeObj<Watched>(_fifo, _log),
                                      makeAccessANOFactory(_handler));
            _device->performOpen();
            Turnstile held;
            produce(*_fifo, makeANO([device = _device, &held] { held.pass(); }));
            held.waitForArrival();
            _device = nullptr;
            produce(*_fifo, makeANO([] { std::_Exit(3); }));
            held.open();
            std::binary_semaphore(0).acquire();
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(DevMDStdDeviceTest, ItsThreadRunsAtOrAboveTheRealTimeLandmark)
{
    EXPECT_EQ(&DevMDStdAccessPrtcl::getPriority(),
              &RtPriorities::getInstance().getRealTimePriority());

    class Asking : public Body
    {
    public:
        using Body::Body;
        void performExecute(MtThread *thread) override
        {
            value = thread->getPriority().getPriority();
            Body::performExecute(thread);
        }
        int value = -1;
    };
    auto * const body = new Asking(_fifo, _log);
    RCShdPtr<Device> const device = makeShd<Device>(_fifo, ObjPtr<DevMDStdThreadProtocol>(body),
                                                    makeAccessANOFactory(_handler));
    device->performOpen();
    EXPECT_GE(body->value, 1);
    std::ostringstream dump;
    MtPriorityMgr::getInstance().dump(dump);
    std::regex const numbers(" \\( +[0-9]+ \\)");
    EXPECT_NE(std::regex_replace(dump.str(), numbers, "")
                  .find("\"std-device\" : RealTime <= camera valid\n"),
              std::string::npos)
        << dump.str();
    device->performClose();
}

TEST_F(DevMDStdDeviceTest, ItsThreadHasTheUsualStack)
{
    lastStackSize = 0;
    auto const device = makeShd<Device>(_handler, _fifo);
    device->performOpen();
    device->performClose();
    EXPECT_EQ(lastStackSize, 65536u);
}

TEST_F(DevMDStdDeviceTest, AFailingRequestIsTheDevicesToHandleAndItsCompletionDoesNotRun)
{
    _device->performOpen();
    ObjPtr<DevANO> failing(makeANO([] { throw std::runtime_error("push"); }));
    failing->setACO(recordingACO(_log, "pushed"));
    produce(*_fifo, failing);
    produce(*_fifo, makeANO([this] { _handler.note("next"); }));
    _device->performClose();
    EXPECT_EQ(_log.getLines(), (Lines{"body of camera", "open", "~pushed", "failed: push", "next",
                                      "close", "stop asked", "body ended"}));
}

TEST(DevMDStdLoopThreadProtocol, WithoutAHandlerAFailureLeavesTheBody)
{
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    DevMDStdLoopThreadProtocol body(fifo);
    Journal log;
    ObjPtr<DevANO> failing(makeANO([] { ZV_THROW(DevPrtclEx::ExNameNotUnique); }));
    failing->setACO(recordingACO(log, "aco"));
    produce(*fifo, failing);
    produce(*fifo, recordingANO(log, "behind"));
    EXPECT_THROW(body.performExecute(nullptr), DevPrtclEx::ExNameNotUnique);
    EXPECT_EQ(log.getLines(), Lines{"~aco"});
    EXPECT_TRUE(body.tryConsume());
    EXPECT_EQ(log.getLines(), (Lines{"~aco", "behind", "~behind"}));
}

TEST(DevMDStdLoopThreadProtocol, HandsAlsoAnExBaseThatIsNoStandardExceptionToTheDevice)
{
    class Stray : public ExBase
    {
    public:
        Stray(char const *file, int line) : ExBase(file, line) {}
        Stray *clone() const override { return new Stray(*this); }
    };
    class Handling : public DevMDStdLoopThreadProtocol
    {
    public:
        using DevMDStdLoopThreadProtocol::DevMDStdLoopThreadProtocol;
        int nbFailures = 0;

    protected:
        void performFailed(std::exception_ptr const &failure) override
        {
            EXPECT_THROW(std::rethrow_exception(failure), Stray);
            ++nbFailures;
            performStop(nullptr);
        }
    };
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    Handling body(fifo);
    produce(*fifo, makeANO([] { ZV_THROW(Stray); }));
    body.performExecute(nullptr);
    EXPECT_EQ(body.nbFailures, 1);
}

/// Body whose requests the test serves itself.
class ByHand : public DevMDStdThreadProtocol
{
public:
    using DevMDStdThreadProtocol::DevMDStdThreadProtocol;
    void performExecute(MtThread *) override {}
};

TEST(DevMDStdThreadProtocol, TryConsumeOnAnEmptyQueueExecutesNothingAndReturnsFalse)
{
    ByHand body(makeShd<DevMDStdFifo>());
    EXPECT_FALSE(body.tryConsume());
}

TEST(DevMDStdThreadProtocol, ExecutesNotifiesAndDestroysInThisOrder)
{
    Journal log;
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    ByHand body(fifo);
    for (int i = 0; i < 2; ++i) {
        ObjPtr<DevANO> ano(recordingANO(log, "ano"));
        ano->setACO(recordingACO(log, "aco"));
        produce(*fifo, ano);
    }
    Lines const once{"ano", "aco", "~aco", "~ano"};
    body.consume();
    EXPECT_EQ(log.getLines(), once);
    EXPECT_TRUE(body.tryConsume());
    EXPECT_EQ(log.getLines().size(), 8u);
    EXPECT_FALSE(body.tryConsume());
}

TEST(DevMDStdThreadProtocol, ANullFifoIsANullPointerFailure)
{
    ByHand body{RCShdPtr<DevMDStdFifo>()};
    EXPECT_THROW(body.consume(), RCEx::ExNullPtr);
    EXPECT_THROW(body.tryConsume(), RCEx::ExNullPtr);
}

TEST(DevMDStdThreadProtocol, AnExceptionOfARequestPassesAndItsCompletionDoesNotRun)
{
    Journal log;
    RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>();
    ByHand body(fifo);
    ObjPtr<DevANO> ano(makeANO([] { throw std::runtime_error("ano"); }));
    ano->setACO(recordingACO(log, "aco"));
    produce(*fifo, ano);
    EXPECT_THROW(body.consume(), std::runtime_error);
    EXPECT_EQ(log.getLines(), Lines{"~aco"});
}

TEST(DevMDStdDevices, OpenAndCloseWhileClientsKeepSending)
{
    for (int round = 0; round < 20; ++round) {
        Journal log;
        Handler handler{log};
        RCShdPtr<DevMDStdFifo> const fifo = makeShd<DevMDStdFifo>(2);
        RCShdPtr<Device> const device = makeShd<Device>(handler, fifo);
        int held = 0; // used by the device's thread
        RCShdPtr<DevMDStdProperty<int>> const gain(new DevMDStdProperty<int>(
            "gain", "", 3,
            makePropertyANOFactory<int>([&](int value) { held = value; },
                                        [&](int &value) { value = held; }),
            fifo));
        device->performOpen();
        std::vector<std::thread> clients;
        for (int i = 0; i < 3; ++i) {
            clients.emplace_back([&] {
                for (;;) {
                    try {
                        int value = 0;
                        gain->set(1);
                        gain->get(value);
                    } catch (DevPrtclEx::ExMDStdPropertyGet &) {
                        return;
                    }
                }
            });
        }
        device->performClose();
        for (auto &client : clients)
            client.join();
    }
}

} // namespace
} // namespace ZvTest
