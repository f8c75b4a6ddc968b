#include "resmgt/deviceManager/sequence/devSeqPrtclUtil.h"

#include "recordingDevice.h"
#include "resmgt/deviceManager/devMgrFifo.h"
#include "zvbase/rcEx.h"

#include <gtest/gtest.h>

namespace ZvTest {

using namespace Zv;

namespace {

/// Request that logs its name when it runs. Clones have another name than the prototype.
class NamedANO final : public DevClonableANO
{
public:
    NamedANO(std::string name, Lines &log) : _name(std::move(name)), _log(log) {}

    void performExecute() override { _log.push_back(_name); }
    ObjPtrRet<DevClonableANO> clone() const override
    {
        return makeObj<NamedANO>(_name + " clone", _log);
    }

private:
    std::string _name;
    Lines &_log;
};

struct Wrapped
{
    Wrapped()
        : fifo(new DevMgrFifo(0)),
          device(new RecordingProtocol("", calls)),
          util(new DevSeqPrtclUtil(RCShdPtr<DevMDSyncSeqPrtcl>(device), fifo, ano("ready"),
                                   ano("lock"), ano("aborted"), ano("stopped"), ano("recover"),
                                   ano("abort")))
    {}

    ObjPtr<DevClonableANO> ano(char const *name) { return makeObj<NamedANO>(name, ran); }

    /// Executes the requests in the FIFO. Returns those that have run since the last call.
    Lines reports()
    {
        for (DevANOQueueEntry entry; fifo->tryConsume(entry);) {
            ObjPtr<DevANO> const report = entry.release();
            report->performExecute();
        }
        return std::exchange(ran, {});
    }

    Lines calls;
    Lines ran;
    RCShdPtr<DevMgrFifo> fifo;
    RCShdPtr<RecordingProtocol> device;
    RCShdPtr<DevSeqPrtclUtil> util;
};

TEST(DevSeqPrtclUtilTest, EachStepReportsItsOwnEnd)
{
    Wrapped wrapped;
    auto const endOf = [&](auto step) {
        step(*wrapped.util);
        wrapped.device->complete();
        return wrapped.reports();
    };
    EXPECT_EQ(endOf([](DevSeqPrtclUtil &util) { util.start(); }), (Lines{"ready clone"}));
    EXPECT_EQ(endOf([](DevSeqPrtclUtil &util) { util.sync(DtTime(2, Rational(1, 1))); }),
              (Lines{"lock clone"}));
    EXPECT_EQ(endOf([](DevSeqPrtclUtil &util) { util.sync(markAt(8)); }), (Lines{"lock clone"}));
    EXPECT_EQ(endOf([](DevSeqPrtclUtil &util) { util.recover(); }), (Lines{"ready clone"}));
    EXPECT_EQ(endOf([](DevSeqPrtclUtil &util) { util.stop(); }), (Lines{"stopped clone"}));
    EXPECT_EQ(endOf([](DevSeqPrtclUtil &util) { util.abort(); }), (Lines{"aborted clone"}));
    EXPECT_EQ(wrapped.calls,
              (Lines{"start", "sync time 2", "sync mark 8", "recover", "stop", "abort"}));
}

TEST(DevSeqPrtclUtilTest, AReportDoesNotRunOnTheDevicesThread)
{
    Wrapped wrapped;
    wrapped.util->start();
    wrapped.device->complete();
    EXPECT_EQ(wrapped.ran, Lines());
    EXPECT_EQ(wrapped.reports(), (Lines{"ready clone"}));
}

TEST(DevSeqPrtclUtilTest, StartGivesTheDeviceItsNotifications)
{
    Wrapped wrapped;
    wrapped.util->start();
    ObjPtr<DevANO> const recovery = wrapped.device->takeRecover();
    ObjPtr<DevANO> const abortion = wrapped.device->takeAbort();
    recovery->performExecute();
    abortion->performExecute();
    EXPECT_EQ(wrapped.ran, Lines());
    EXPECT_EQ(wrapped.reports(), (Lines{"recover clone clone", "abort clone clone"}));
}

TEST(DevSeqPrtclUtilTest, EachWayToUseANotificationMakesOneReport)
{
    Wrapped wrapped;
    wrapped.util->start();
    ObjPtr<DevANO> const recovery = wrapped.device->takeRecover();
    recovery->performExecute(); // with `notify`, as if it came from the device's queue
    recovery->notify();
    EXPECT_EQ(wrapped.reports().size(), 1u);
    recovery->performExecute();
    EXPECT_EQ(wrapped.reports().size(), 1u);

    ObjPtr<DevANO> const abortion = wrapped.device->takeAbort();
    abortion->notify();
    abortion->notify();
    EXPECT_EQ(wrapped.reports().size(), 1u);
}

TEST(DevSeqPrtclUtilTest, ReportsOfOneKindAreDroppedWhileEnoughOfThemWait)
{
    constexpr auto MAX = DevSeqPrtclUtil::MAX_WAITING_REPORTS;
    Wrapped wrapped;
    wrapped.util->start();
    ObjPtr<DevANO> const recovery = wrapped.device->takeRecover();
    ObjPtr<DevANO> const abortion = wrapped.device->takeAbort();
    for (int i = 0; i < 3 * MAX; ++i)
        recovery->performExecute();
    abortion->performExecute();
    wrapped.device->complete();
    Lines expected(MAX, "recover clone clone");
    expected.push_back("abort clone clone");
    expected.push_back("ready clone");
    EXPECT_EQ(wrapped.reports(), expected);
    recovery->performExecute();
    EXPECT_EQ(wrapped.reports().size(), 1u);
}

TEST(DevSeqPrtclUtilTest, ReportsThatWereTakenDoNotWait)
{
    constexpr auto MAX = DevSeqPrtclUtil::MAX_WAITING_REPORTS;
    Wrapped wrapped;
    wrapped.util->start();
    ObjPtr<DevANO> const recovery = wrapped.device->takeRecover();
    for (int i = 0; i < MAX; ++i)
        recovery->performExecute();
    DevANOQueueEntry entry = wrapped.fifo->consume();
    ObjPtr<DevANO> taken = entry.release();
    taken->performExecute(); // the manager's thread also keeps it after that
    recovery->performExecute();
    EXPECT_EQ(wrapped.reports().size(), static_cast<std::size_t>(MAX + 1));
    taken = nullptr;

    // Reports that are destroyed without being executed do not count either.
    for (int i = 0; i < MAX; ++i)
        recovery->performExecute();
    wrapped.fifo->close();
    wrapped.fifo->open();
    recovery->performExecute();
    EXPECT_EQ(wrapped.reports().size(), 1u);
}

TEST(DevSeqPrtclUtilTest, LatencyAndMarkAreTheDevices)
{
    Wrapped wrapped;
    wrapped.device->latency = DtTime(3, Rational(1, 1));
    wrapped.device->mark = markAt(4);
    EXPECT_EQ(wrapped.util->getLatency(), DtTime(3, Rational(1, 1)));
    EXPECT_EQ(wrapped.util->getMark(), markAt(4));
}

TEST(DevSeqPrtclUtilTest, WithoutNotificationsThereIsNoFifoEither)
{
    Lines calls;
    RCShdPtr<RecordingProtocol> const device(new RecordingProtocol("", calls));
    RCShdPtr<DevSeqPrtclUtil> const util(new DevSeqPrtclUtil(RCShdPtr<DevMDSyncSeqPrtcl>(device)));
    util->start();
    ObjPtr<DevANO> const recovery = device->takeRecover();
    recovery->performExecute();
    EXPECT_THROW(device->complete(), RCEx::ExNullPtr);
}

TEST(DevSeqPrtclUtilTest, ANullProtocolIsANullPointer)
{
    RCShdPtr<DevSeqPrtclUtil> const util(new DevSeqPrtclUtil(RCShdPtr<DevMDSyncSeqPrtcl>()));
    EXPECT_THROW(util->start(), RCEx::ExNullPtr);
    EXPECT_THROW((void)util->getLatency(), RCEx::ExNullPtr);
}

/// Completion that logs its destruction.
class MortalACO final : public DevACO
{
public:
    explicit MortalACO(Lines &log) : _log(log) {}
    ~MortalACO() override { _log.push_back("destroyed"); }
    void performExecute() override { _log.push_back("executed"); }

private:
    Lines &_log;
};

TEST(NoopedSyncSeqProtocolTest, DestroysWhatItIsGiven)
{
    Lines log;
    RCShdPtr<DevMDSyncSeqPrtcl> const nobody(new NoopedSyncSeqProtocol);
    auto const aco = [&] { return makeObj<MortalACO>(log); };
    nobody->performStart(aco(), nullptr, nullptr);
    nobody->performSync(aco(), DtTime());
    nobody->performSync(aco(), DtTimeMark());
    nobody->performRecover(aco());
    nobody->performStop(aco());
    nobody->performAbort(aco());
    EXPECT_EQ(log, Lines(6, "destroyed"));
    EXPECT_EQ(nobody->getLatency(), DtTime());
    EXPECT_EQ(nobody->getLatency().getRate(), Rational(1, 1));
    EXPECT_EQ(nobody->getMark(), DtTimeMark());
}

} // namespace
} // namespace ZvTest
