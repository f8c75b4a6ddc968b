// Wake-ups of a supervised sequence. Clients wait with limits that never pass, and return at the
// moment of the cause. The supervisor's thread does its next task at the moment of its cause.
#include "simulated/sequences.h"

#include "resmgt/deviceManager.h"
#include "resmgt/deviceProtocol.h"
#include "resmgt/locks.h"
#include "zvbase/inPackage.h"
#include "zvbase/sleeper.h"

#include "platform/services.h"

#include <cstring>
#include <functional>
#include <memory>
#include <utility>

using namespace Zv;
using namespace Zv::Simulated;

namespace {

using End = DevSeqDeviceStatus::End;

/// Time advances only when all threads wait.
constexpr Settings STRICT = withSequences(40, 400'000, false);

/// Longer than any single wait of the supervisor.
constexpr double NEVER = 1e6;

double now()
{
    return Sleeper::getInstance().getTime();
}

/// Waits until all other threads wait.
void settle()
{
    ::Sleep(1000);
}

/// A device that answers each step within the call. It keeps the completions of one step, and waits
/// in another one.
class Puppet final : public DevMDSyncSeqPrtcl
{
public:
    void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO> recover, ObjPtr<DevANO> abort) override
    {
        {
            LkGuard const guard(_lock);
            _recover = recover;
            _abort = abort;
        }
        take("start", aco);
    }
    void performSync(ObjPtr<DevACO> aco, DtTimeMark const &) override { take("sync", aco); }
    void performSync(ObjPtr<DevACO> aco, DtTime const &) override { take("sync", aco); }
    void performRecover(ObjPtr<DevACO> aco) override { take("recover", aco); }
    void performStop(ObjPtr<DevACO> aco) override { take("stop", aco); }
    void performAbort(ObjPtr<DevACO> aco) override { take("abort", aco); }
    DtTime getLatency() override { return DtTime(); }
    DtTimeMark getMark() override { return DtTimeMark(); }

    void keep(char const *step)
    {
        LkGuard const guard(_lock);
        _keeps = step;
    }
    void hangIn(char const *step)
    {
        LkGuard const guard(_lock);
        _hangsIn = step;
    }
    void answer()
    {
        keep("");
        releaseKept()->performExecute();
    }
    void drop() { ObjPtr<DevACO> const dropped(releaseKept()); }
    void reportRecover() { execute(_recover); }
    void reportAbort() { execute(_abort); }
    void goOn() { _gate.post(); }

private:
    void take(char const *step, ObjPtr<DevACO> &aco)
    {
        if (isStep(_hangsIn, step))
            _gate.wait();
        if (isStep(_keeps, step)) {
            LkGuard const guard(_lock);
            _kept = aco;
        } else {
            aco->performExecute();
        }
    }
    bool isStep(char const * const &chosen, char const *step)
    {
        LkGuard const guard(_lock);
        return std::strcmp(step, chosen) == 0;
    }
    ObjPtr<DevACO> releaseKept()
    {
        LkGuard const guard(_lock);
        return ObjPtr<DevACO>(_kept.release());
    }
    void execute(ObjPtr<DevANO> const &request)
    {
        DevANO *known = nullptr;
        {
            LkGuard const guard(_lock);
            known = request.get();
        }
        known->performExecute();
    }

    LkLock _lock{"puppet"};
    char const *_keeps = "";
    char const *_hangsIn = "";
    ObjPtr<DevACO> _kept;
    ObjPtr<DevANO> _recover;
    ObjPtr<DevANO> _abort;
    LkUnnamedSema _gate{"gate", 0};
};

/// The supervised sequence ( root ( child ) ).
class Scene
{
public:
    Scene()
    {
        add("root", root);
        add("child", child);
        manager = DevMgr::create();
        supervisor = manager->createSeqSupervisor("( root ( child ) )");
        supervisor->setEndLimit(1000);
    }
    ~Scene() noexcept(false)
    {
        supervisor = nullptr;
        manager = nullptr;
        for (char const *name : {"root", "child"})
            DevRegistry::getInstance().remove(name);
    }

    /// Starts the sequence, and returns when nothing is left to do.
    void start()
    {
        supervisor->start();
        settle();
    }

    RCShdPtr<Puppet> root = makeShd<Puppet>();
    RCShdPtr<Puppet> child = makeShd<Puppet>();
    ObjPtr<DevMgr> manager;
    ObjPtr<DevMgrSeqSupervisor> supervisor;

private:
    static void add(char const *name, RCShdPtr<Puppet> const &device)
    {
        DevRegistry::getInstance().add(makeRegistryEntry(
            name, "", [device](LiString const &) { return RCShdPtr<DevMDPrtcl>(device); }));
    }
};

/// How a call of a client has ended.
enum class Result
{
    RETURNED,
    LATE,    // `false`
    FAILED,  // SeqDeviceFailed
    ILLEGAL, // SeqIllegalCall
    OTHERWISE
};

/// A client that is in a call.
class Client
{
public:
    explicit Client(std::function<bool()> call)
        : _worker("client", [this, call = std::move(call)] {
              try {
                  _result = call() ? Result::RETURNED : Result::LATE;
              } catch (DevMgrEx::SeqDeviceFailed const &) {
                  _result = Result::FAILED;
              } catch (DevMgrEx::SeqIllegalCall const &) {
                  _result = Result::ILLEGAL;
              } catch (...) {
                  _result = Result::OTHERWISE;
              }
              _moment = now();
          })
    {}

    /// Waits for the result, which must be there at this moment.
    Result getResult()
    {
        double const cause = now();
        _worker.join();
        HOLDS(_moment <= cause + 0.01);
        return _result;
    }

private:
    Result _result = Result::LATE;
    double _moment = 0;
    Worker _worker; // must be the last
};

std::unique_ptr<Client> waitLocked(Scene &scene)
{
    return std::make_unique<Client>([&scene] { return scene.supervisor->waitLocked(NEVER); });
}

std::unique_ptr<Client> wait(Scene &scene)
{
    return std::make_unique<Client>([&scene] { return scene.supervisor->wait(NEVER); });
}

std::unique_ptr<Client> abort(Scene &scene, double seconds)
{
    return std::make_unique<Client>([&scene, seconds] {
        scene.supervisor->abort(seconds);
        return true;
    });
}

std::unique_ptr<Client> stop(Scene &scene)
{
    return std::make_unique<Client>([&scene] {
        scene.supervisor->stop(NEVER, NEVER);
        return true;
    });
}

} // namespace

SIMULATED(ClientsWakeWhenAllDevicesLock, STRICT)
{
    InPackageScope const packages;
    Scene scene;
    scene.child->keep("sync");
    scene.start();
    auto const first = waitLocked(scene);
    auto const second = waitLocked(scene);
    settle();
    scene.child->answer();
    HOLDS(first->getResult() == Result::RETURNED);
    HOLDS(second->getResult() == Result::RETURNED);
}

SIMULATED(ClientsWakeWhenARecoveryHasEnded, STRICT)
{
    InPackageScope const packages;
    Scene scene;
    scene.start();
    scene.child->keep("recover");
    scene.child->reportRecover();
    settle();
    auto const client = waitLocked(scene);
    settle();
    scene.child->answer();
    HOLDS(client->getResult() == Result::RETURNED);
}

SIMULATED(ClientsWakeWhenADeviceFails, STRICT)
{
    InPackageScope const packages;
    Scene scene;
    scene.child->keep("sync");
    scene.start();
    auto const first = waitLocked(scene);
    auto const second = waitLocked(scene);
    settle();
    scene.child->drop();
    HOLDS(first->getResult() == Result::FAILED);
    HOLDS(second->getResult() == Result::FAILED);
}

SIMULATED(ClientsWakeWhenADeviceAborts, STRICT)
{
    InPackageScope const packages;
    Scene scene;
    scene.root->keep("sync");
    scene.start();
    auto const first = waitLocked(scene);
    auto const second = waitLocked(scene);
    settle();
    scene.child->keep("abort");
    scene.child->reportAbort();
    HOLDS(first->getResult() == Result::FAILED);
    HOLDS(second->getResult() == Result::FAILED);
    settle();
    scene.child->answer();
    scene.root->answer(); // so that it can be stopped
}

SIMULATED(ClientsWakeWhenTheSequenceIsStoppedAndWhenItHasEnded, STRICT)
{
    InPackageScope const packages;
    Scene scene;
    scene.child->keep("sync");
    scene.start();
    auto const locking = waitLocked(scene);
    auto const waiting = wait(scene);
    settle();
    auto const stopping = stop(scene);
    HOLDS(locking->getResult() == Result::ILLEGAL);
    settle();
    auto const stoppingToo = stop(scene);
    settle();
    scene.child->answer();
    HOLDS(waiting->getResult() == Result::RETURNED);
    HOLDS(stopping->getResult() == Result::RETURNED);
    HOLDS(stoppingToo->getResult() == Result::RETURNED);
}

SIMULATED(ClientsWakeWhenTheSequenceEndsByItself, STRICT)
{
    InPackageScope const packages;
    Scene scene;
    scene.root->keep("abort");
    scene.start();
    auto const waiting = wait(scene);
    scene.child->reportAbort();
    scene.root->reportAbort();
    settle();
    auto const stopping = stop(scene);
    settle();
    scene.root->answer();
    HOLDS(waiting->getResult() == Result::RETURNED);
    HOLDS(stopping->getResult() == Result::RETURNED);
}

SIMULATED(ClientsThatStopWakeWhenAnotherOneAborts, STRICT)
{
    InPackageScope const packages;
    Scene scene;
    scene.child->keep("stop");
    scene.start();
    auto const stopping = stop(scene);
    auto const waiting = wait(scene);
    settle();
    double const cause = now();
    DevSeqStatus const status = scene.supervisor->abort(NEVER);
    HOLDS(now() <= cause + 0.01);
    HOLDS(status.devices[0].end == End::ABORTED && status.devices[1].end == End::ABORTED);
    HOLDS(stopping->getResult() == Result::RETURNED);
    HOLDS(waiting->getResult() == Result::RETURNED);
}

/// The supervisor's thread waits when the abort begins, and hangs in the abort of the child. It is
/// replaced in time, so that the root is aborted when its share of the limit begins.
SIMULATED(ClientsSeeThatTheThreadHangs, STRICT)
{
    InPackageScope const packages;
    Scene scene;
    scene.start();
    scene.child->hangIn("abort");
    double const begin = now();
    DevSeqStatus const status = scene.supervisor->abort(9);
    HOLDS(now() <= begin + 9.01);
    HOLDS(status.devices[0].end == End::ABORTED);
    HOLDS(status.devices[1].end == End::NO_ANSWER);
    scene.child->goOn();
    settle();
}

/// The supervisor's thread hangs in the observer, after it has waited. It is replaced, so that the
/// root is aborted.
SIMULATED(ClientsSeeThatTheObserverHangs, STRICT)
{
    class Observer final : public DevSeqObserver
    {
    public:
        void stateChanged(LiString const &device, LiString const &state) override
        {
            if (device == "child" && state == "final")
                gate.wait();
        }
        LkUnnamedSema gate{"gate", 0};
    };
    InPackageScope const packages;
    Scene scene;
    auto const observer = makeShd<Observer>();
    scene.supervisor->setObserver(observer);
    scene.start();
    scene.child->keep("abort");
    double const begin = now();
    Worker aborting("aborting", [&scene, begin] {
        DevSeqStatus const status = scene.supervisor->abort(9);
        HOLDS(status.devices[0].end == End::ABORTED);
        HOLDS(status.devices[1].end == End::ABORTED);
        HOLDS(status.moment <= begin + 3 + 1.51);
    });
    ::Sleep(3000);
    scene.child->answer();
    aborting.join();
    observer->gate.post();
    settle();
}

SIMULATED(DestructorWakesWhenTheThreadHasLeft, STRICT)
{
    InPackageScope const packages;
    Scene scene;
    scene.start();
    double const begin = now();
    scene.supervisor = nullptr;
    HOLDS(now() <= begin + 0.01);
}

// ---- The supervisor's thread wakes as well.

SIMULATED(ThreadWakesWhenADeviceFailsWhileTheSequenceStops, STRICT)
{
    InPackageScope const packages;
    Scene scene;
    scene.child->keep("start");
    scene.start();
    auto const stopping = stop(scene);
    settle();
    scene.child->drop(); // the root waits for the child and can never stop
    HOLDS(stopping->getResult() == Result::RETURNED);
}

/// The root is aborted as soon as the child has answered.
SIMULATED(ThreadWakesWhenAChildHasEnded, STRICT)
{
    InPackageScope const packages;
    Scene scene;
    scene.start();
    scene.child->keep("abort");
    auto const aborting = abort(scene, 9);
    settle();
    scene.child->answer();
    HOLDS(aborting->getResult() == Result::RETURNED);
}

/// The turn of the root is earlier if the limit becomes shorter.
SIMULATED(ThreadWakesWhenTheLimitIsShortened, STRICT)
{
    InPackageScope const packages;
    Scene scene;
    scene.start();
    scene.child->keep("abort");
    auto const aborting = abort(scene, NEVER);
    settle();
    double const begin = now();
    DevSeqStatus const status = scene.supervisor->abort(10);
    HOLDS(now() <= begin + 10.01);
    HOLDS(status.devices[0].end == End::ABORTED);
    HOLDS(status.devices[1].end == End::NO_ANSWER);
    HOLDS(aborting->getResult() == Result::RETURNED);
    scene.child->drop();
}

/// The child does not return from its stop, so the thread is replaced. When the child returns, it
/// is aborted at once.
SIMULATED(ThreadWakesWhenACallReturns, STRICT)
{
    InPackageScope const packages;
    Scene scene;
    scene.start();
    scene.child->hangIn("stop");
    scene.child->keep("stop");
    Client stopping([&scene] {
        scene.supervisor->stop(1, 9);
        return true;
    });
    ::Sleep(4000);
    scene.child->goOn();
    HOLDS(stopping.getResult() == Result::RETURNED);
    HOLDS(scene.supervisor->getStatus().devices[1].end == End::ABORTED);
    scene.child->drop();
    settle(); // until the thread that was left behind has ended
}

SIMULATED(ThreadWakesToTellTheObserverOfTheEnd, STRICT)
{
    class Observer final : public DevSeqObserver
    {
    public:
        void stateChanged(LiString const &device, LiString const &state) override
        {
            LkGuard const guard(_lock);
            _last = device + " " + state;
        }
        LiString getLast()
        {
            LkGuard const guard(_lock);
            return _last;
        }

    private:
        LkLock _lock{"observer"};
        LiString _last;
    };
    InPackageScope const packages;
    Scene scene;
    auto const observer = makeShd<Observer>();
    scene.supervisor->setObserver(observer);
    scene.start();
    scene.root->keep("abort");
    auto const aborting = abort(scene, NEVER);
    settle();
    HOLDS(observer->getLast() == "root abort");
    scene.root->answer();
    settle();
    HOLDS(observer->getLast() == "root final");
}

// ---- There is no memory for the orderly way.

namespace {

constexpr Settings WITHOUT_MEMORY = [] {
    Settings settings = withSequences(5, 400'000, false);
    settings.refusals = MEMORY;
    return settings;
}();

/// Runs an action, and what follows from it, while one allocation may fail.
void attempt(std::function<void()> const &action)
{
    MayBeRefused const refusals;
    try {
        action();
    } catch (...) {
    }
    settle();
}

} // namespace

SIMULATED(ClientsWakeWhenThereIsNoMemory, WITHOUT_MEMORY)
{
    InPackageScope const packages;
    Scene scene;
    scene.root->keep("sync");
    scene.start();
    auto const first = waitLocked(scene);
    auto const second = waitLocked(scene);
    settle();
    double const cause = now();
    attempt([&scene] { scene.root->answer(); });
    HOLDS(now() <= cause + 1.01);
    HOLDS(first->getResult() != Result::LATE);
    HOLDS(second->getResult() != Result::LATE);
}

/// If there was no memory for a machine, the stop goes over to the abort at once, also if no device
/// is left that must be told.
SIMULATED(StopWakesWhenThereIsNoMemory, WITHOUT_MEMORY)
{
    InPackageScope const packages;
    Scene scene;
    scene.start();
    scene.child->reportAbort();
    settle();
    scene.root->keep("abort");
    attempt([&scene] { scene.root->reportAbort(); });
    double const begin = now();
    DevSeqStatus const status = scene.supervisor->stop(100, 1);
    HOLDS(now() <= begin + (status.failure.isEmpty() ? 101.01 : 1.01));
    scene.root->keep("");
    scene.root->drop();
}

/// A child whose parent has aborted is told to stop by the plan. If there is no memory for that,
/// the plan does not try again and again.
SIMULATED(LostSubtreeStopsWithoutMemory, WITHOUT_MEMORY)
{
    InPackageScope const packages;
    Scene scene;
    scene.start();
    scene.root->reportAbort();
    settle();
    double const begin = now();
    attempt([&scene] { scene.supervisor->stop(100, 1); });
    DevSeqStatus const status = scene.supervisor->getStatus();
    HOLDS(status.phase == DevSeqStatus::Phase::ENDED);
    HOLDS(status.moment <= begin + 1.01);
    HOLDS(status.devices[1].end == End::STOPPED || status.devices[1].end == End::ABORTED);
}
