// Threads that were left behind and continue later: the thread of a closed manager, and a thread on
// its way into a device.
#include "simulated/scenario.h"

#include "resmgt/deviceManager.h"
#include "resmgt/deviceProtocol.h"
#include "zvbase/inPackage.h"

#include "platform/services.h"

#include <functional>
#include <utility>

using namespace Zv;
using namespace Zv::Simulated;

namespace {

/// Time advances only when all threads wait.
constexpr Settings STRICT = {
    .schedules = 300, .bound = 100'000, .hasty = false, .leftOver = {64, 0}};

/// A device that answers at once. The duration of its start can be chosen.
class Prompt final : public DevMDAccessPrtcl, public DevMDSyncSeqPrtcl
{
public:
    void performOpen() override { ++nbOpened; }
    void performClose() override
    {
        HOLDS(!isInCall);
        HOLDS(++nbClosed == 1);
    }
    void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO>, ObjPtr<DevANO>) override
    {
        call([&] {
            ::Sleep(secondsToStart * 1000);
            aco->performExecute();
        });
    }
    void performSync(ObjPtr<DevACO> aco, DtTimeMark const &) override { answer(aco); }
    void performSync(ObjPtr<DevACO> aco, DtTime const &) override { answer(aco); }
    void performRecover(ObjPtr<DevACO> aco) override { answer(aco); }
    void performStop(ObjPtr<DevACO> aco) override { answer(aco); }
    void performAbort(ObjPtr<DevACO> aco) override { answer(aco); }
    DtTime getLatency() override
    {
        call([] {});
        return DtTime();
    }
    DtTimeMark getMark() override
    {
        call([] {});
        return DtTimeMark();
    }

    DWORD secondsToStart = 0;
    int nbOpened = 0;
    int nbClosed = 0;
    bool isInCall = false;

private:
    void answer(ObjPtr<DevACO> &aco)
    {
        call([&aco] { aco->performExecute(); });
    }
    template <class Action>
    void call(Action action)
    {
        HOLDS(nbOpened == 1 && nbClosed == 0);
        HOLDS(!std::exchange(isInCall, true));
        step("in a call");
        action();
        isInCall = false;
    }
};

/// A manager with the device "a" in a supervised sequence.
struct Scene
{
    Scene()
    {
        DevRegistry::getInstance().add(makeRegistryEntry(
            "a", "", [this](LiString const &) { return RCShdPtr<DevMDPrtcl>(device); }));
        manager = DevMgr::create();
        supervisor = manager->createSeqSupervisor("( a )");
    }
    ~Scene() { DevRegistry::getInstance().remove("a"); }

    RCShdPtr<Prompt> device = makeShd<Prompt>();
    ObjPtr<DevMgr> manager;
    ObjPtr<DevMgrSeqSupervisor> supervisor;
};

void prepareTable()
{
    DevSeqSMTable::getInstance();
}

} // namespace

/// The thread can continue at the moment when it is left behind. It may then be about to take its
/// next entry.
SIMULATED(ThreadOfAClosedManagerEndsWhenItComesFree, STRICT)
{
    InPackageScope const packages;
    {
        RCShdPtr<DevMgrMediator> mediator(new DevMgrMediator);
        for (DWORD const milliseconds : {100, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}) {
            DevANOQueueEntry entry(makeANO([milliseconds] { ::Sleep(milliseconds); }));
            mediator->getFifo()->produce(entry);
        }
        DevMgrCloseReport const report = mediator->close(0.2);
        HOLDS(report.isThreadLeftBehind == mediator->isThreadLeftBehind());
    }
    ::Sleep(1000); // until it has ended
}

/// A device reports while the thread may be left behind. The thread ends nevertheless.
SIMULATED(ThreadOfAClosedManagerEndsAlsoIfDevicesStillReport, STRICT)
{
    InPackageScope const packages;
    RCShdPtr<DevMgrMediator> mediator(new DevMgrMediator);
    RCShdPtr<DevMgrFifo> const fifo = mediator->getFifo();
    auto const produce = [fifo](std::function<void()> function) {
        DevANOQueueEntry entry(makeANO(std::move(function)));
        fifo->produce(entry);
    };
    produce([] { ::Sleep(100); });
    Worker reporter("reporter", [&produce] {
        ::Sleep(100);
        for (int i = 0; i < 60; ++i)
            produce([] {});
    });
    HOLDS(!mediator->close(0.2).devices.size());
    mediator = nullptr;
    reporter.join();
    ::Sleep(1000);
}

/// Time-outs may occur at any moment, so the device may be given up at any point, also on the way
/// into a call. The manager does not wait for the device, which is closed when its call has
/// returned.
SIMULATED(DeviceIsNotCalledAfterItsClosing,
          {.schedules = 500, .bound = 400'000, .leftOver = {200, 16}, .prepare = prepareTable})
{
    InPackageScope const packages;
    auto &scene = *new Scene; // never deleted, because a runner that was left behind may use it
    scene.supervisor->start();
    scene.supervisor->waitLocked(0.001);
    scene.supervisor->stop(0.001, 0.001);
    scene.supervisor->setEndLimit(0.001);
    scene.supervisor = nullptr;
    scene.manager = nullptr;
    for (int i = 0; i < 100 && peek(scene.device->nbClosed) == 0; ++i)
        ::Sleep(1000);
    HOLDS(peek(scene.device->nbClosed) == 1);
}

SIMULATED(DeviceIsClosedWhenItsCallReturns, {.schedules = 100,
                                             .bound = 400'000,
                                             .hasty = false,
                                             .leftOver = {64, 0},
                                             .prepare = prepareTable})
{
    InPackageScope const packages;
    Scene scene;
    scene.device->secondsToStart = 60;
    scene.supervisor->start();
    ::Sleep(1000);
    HOLDS(peek(scene.device->isInCall));
    DevSeqStatus const status = scene.supervisor->stop(1, 1);
    HOLDS(status.devices[0].end == DevSeqDeviceStatus::End::NO_ANSWER);
    HOLDS(status.devices[0].call == "start");
    scene.supervisor = nullptr;
    scene.manager = nullptr;
    HOLDS(peek(scene.device->isInCall) && peek(scene.device->nbClosed) == 0);
    ::Sleep(60'000);
    HOLDS(!peek(scene.device->isInCall) && peek(scene.device->nbClosed) == 1);
}

SIMULATED(ClosingWithALimitWaitsForACall, {.schedules = 100,
                                           .bound = 400'000,
                                           .hasty = false,
                                           .leftOver = {64, 0},
                                           .prepare = prepareTable})
{
    InPackageScope const packages;
    for (bool const isInTime : {true, false}) {
        Scene scene;
        scene.device->secondsToStart = 60;
        scene.supervisor->start();
        ::Sleep(1000);
        HOLDS(peek(scene.device->isInCall));
        DevMgrCloseReport const report = scene.manager->close(isInTime ? 100 : 10);
        HOLDS(report.devices.size() == 1);
        HOLDS(report.devices[0].end ==
              (isInTime ? DevMgrCloseReport::End::CLOSED : DevMgrCloseReport::End::NOT_CLOSED));
        HOLDS(peek(scene.device->nbClosed) == (isInTime ? 1 : 0));
        if (!isInTime)
            ::Sleep(60'000);
        HOLDS(peek(scene.device->nbClosed) == 1);
    }
}

/// Any thread may close the manager while a sequence runs. The devices are closed between two
/// calls.
SIMULATED(ManagerIsClosedWhileASupervisedSequenceRuns, {.schedules = 500,
                                                        .bound = 400'000,
                                                        .hasty = false,
                                                        .leftOver = {64, 0},
                                                        .prepare = prepareTable})
{
    InPackageScope const packages;
    Scene scene;
    Worker client("client", [&scene] {
        try {
            scene.supervisor->start();
            scene.supervisor->waitLocked(10);
        } catch (DevMgrEx::SeqDeviceFailed const &) { // the device was closed before
        }
    });
    DevMgrCloseReport const report = scene.manager->close(10);
    HOLDS(report.devices.size() == 1 && report.getLeftBehind().empty());
    HOLDS(scene.device->nbClosed == 1);
    client.join();
    DevSeqStatus const status = scene.supervisor->stop(1);
    HOLDS(status.devices[0].end == DevSeqDeviceStatus::End::FAILED);
}
