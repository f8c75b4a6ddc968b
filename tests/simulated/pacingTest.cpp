// Pools, alarms and paced threads, in virtual time.
#include "simulated/scenario.h"

#include "resmgt/locks.h"
#include "resmgt/syncEngine.h"
#include "resmgt/threadExtensions.h"
#include "resmgt/threads.h"
#include "zvbase/inPackage.h"
#include "zvbase/sleeper.h"

#include <deque>
#include <functional>

using namespace Zv;
using namespace Zv::Simulated;

namespace {

constexpr Settings WITH_PACKAGES = {.schedules = 100, .bound = 100'000, .leftOver = {64, 0}};

/// The thread of the alarms runs until the end of the process.
constexpr Settings WITH_ALARMS = {.schedules = 150, .leftOver = {64, 1}};

} // namespace

// ---- Pools.

namespace {

class Work : public MtTaskImp
{
public:
    explicit Work(std::function<void()> what) : _what(std::move(what)) {}
    void execute() override { _what(); }

private:
    std::function<void()> _what;
};

class Pool : public MtThreadPool
{
public:
    explicit Pool(unsigned nbThreads)
        : MtThreadPool("pool", nbThreads, false, 0), _lock("tasks"), _filled("filled")
    {}
    ~Pool() noexcept(false) override { stop(); }

    void add(std::function<void()> what, MtRequestTag tag)
    {
        LkGuard<LkMutex const> const guard(_lock);
        requests.incRequestCount(tag);
        _tasks.emplace_back(tag, RCShdPtr<MtTaskImp>(new Work(std::move(what))));
        _filled.signal();
    }

    MtRequestMgr requests;
    LkCounter<long> executed;
    LkCounter<long> empty;
    LkCounter<long> done;

private:
    void obtainTask(unsigned worker) override
    {
        LkGuard<LkMutex const> const guard(_lock);
        while (_tasks.empty() && isRunning())
            _filled.wait(guard);
        if (_tasks.empty())
            return;
        _taken[worker] = _tasks.front();
        _tasks.pop_front();
    }
    void executeTask(unsigned worker) override
    {
        MtRequestTag const tag = _taken[worker].getTag();
        if (!tag.isValid()) {
            ++empty;
            return;
        }
        _taken[worker].execute();
        _taken[worker] = MtTask();
        ++executed;
        requests.decRequestCount(tag);
    }
    void doneTask(unsigned) override { ++done; }
    void stopThreads() override
    {
        LkGuard<LkMutex const> const guard(_lock);
        _filled.broadcast();
    }

    LkMutex _lock;
    LkCondVar _filled;
    std::deque<MtTask> _tasks;
    MtTask _taken[3];
};

} // namespace

SIMULATED(PoolWorks, WITH_PACKAGES)
{
    InPackageScope const packages;
    Pool pool(2);
    pool.start();
    LkCounter<long> sum;
    auto const batch = [&] {
        MtRequestTag const tag = pool.requests.acquireTag();
        LkCounter<long> mine;
        for (int i = 0; i < 2; ++i)
            pool.add(
                [&] {
                    ++mine;
                    ++sum;
                },
                tag);
        pool.requests.waitRequestCountZero(tag);
        HOLDS(mine.getValue() == 2);
        pool.requests.releaseTag(tag);
    };
    Worker other("other", batch);
    batch();
    other.join();
    HOLDS(sum.getValue() == 4);
    pool.stop();
    HOLDS(pool.done.getValue() == pool.executed.getValue() + pool.empty.getValue());
}

/// Tasks that remain when the pool stops are executed when it runs again.
SIMULATED(PoolStopsWhileWorkComes, WITH_PACKAGES)
{
    InPackageScope const packages;
    Pool pool(2);
    MtRequestTag const tag = pool.requests.acquireTag();
    int runs = 0;
    Worker giver("giver", [&] {
        for (int i = 0; i < 2; ++i)
            pool.add([] {}, tag);
    });
    pool.start();
    pool.stop();
    runs = static_cast<int>(pool.done.getValue());
    giver.join();
    HOLDS(!pool.isRunning() && pool.done.getValue() == runs);
    pool.start();
    pool.requests.waitRequestCountZero(tag);
    pool.stop();
    HOLDS(pool.executed.getValue() == 2);
    pool.requests.releaseTag(tag);
}

// ---- Alarms.

namespace {

/// A binary fraction of a second, so that a due time is reached without rounding. After rounding, a
/// thread that only reads the clock could wait for it in vain.
constexpr double SOON = 1.0 / 64;

MtAlarmManager &alarms()
{
    return MtAlarmManager::getInstance();
}

double now()
{
    return Sleeper::getInstance().getTime();
}

/// Counts its calls, and checks their times.
class Bell : public MtAlarmHandle::Callback
{
public:
    explicit Bell(double seconds, double repeat = 0, unsigned repeats = 0)
        : handle(alarms().createHandle()), called("called", 0)
    {
        handle->setCallback(this);
        handle->setDuration(seconds);
        handle->setRepeatDuration(repeat);
        handle->setRequestedRepeats(repeats);
    }
    void performAlarm(RCShdPtr<MtAlarmHandle> alarm, bool goingAway) override
    {
        HOLDS(!isSilent && !goingAway && alarm == handle);
        HOLDS(now() >= handle->getAlarmTime());
        step("ringing");
        HOLDS(!isSilent);
        ++calls;
        if (onCall)
            onCall();
        called.post();
    }
    void silence()
    {
        alarms().deregisterAlarm(handle);
        isSilent = true;
    }

    RCShdPtr<MtAlarmHandle> handle;
    LkUnnamedSema called;
    std::function<void()> onCall;
    int calls = 0;
    bool isSilent = false;
};

} // namespace

SIMULATED(AlarmsComeInTheirOrder, WITH_ALARMS)
{
    InPackageScope const packages;
    Bell late(2 * SOON);
    Bell early(SOON);
    early.onCall = [&] { HOLDS(late.calls == 0 || now() >= late.handle->getAlarmTime()); };
    Worker other("other", [&] { alarms().registerAlarm(late.handle); });
    alarms().registerAlarm(early.handle);
    early.called.wait();
    late.called.wait();
    other.join();
    early.silence();
    late.silence();
    HOLDS(early.calls == 1 && late.calls == 1);
}

SIMULATED(AlarmDeregisteredWhileItRings, WITH_ALARMS)
{
    InPackageScope const packages;
    Bell bell(SOON, SOON, 100);
    Bell other(1.5 * SOON, SOON, 100);
    alarms().registerAlarm(bell.handle);
    alarms().registerAlarm(other.handle);
    Worker second("second", [&] { alarms().deregisterAlarm(bell.handle); });
    bell.silence();
    HOLDS(!bell.handle->isRegistered());
    second.join();
    other.called.wait();
    other.silence();
}

SIMULATED(AlarmDeregistersItself, WITH_ALARMS)
{
    InPackageScope const packages;
    Bell bell(SOON, SOON, 100);
    bell.onCall = [&] { alarms().deregisterAlarm(bell.handle); };
    alarms().registerAlarm(bell.handle);
    Worker other("other", [&] { alarms().deregisterAlarm(bell.handle); });
    other.join();
    bell.silence();
    HOLDS(bell.calls <= 1);
}

SIMULATED(AlarmsRegisterEachOther, WITH_ALARMS)
{
    InPackageScope const packages;
    Bell second(SOON);
    Bell first(SOON);
    first.onCall = [&] { alarms().registerAlarm(second.handle); };
    alarms().registerAlarm(first.handle);
    Worker other("other", [&] { alarms().registerAlarm(first.handle); });
    second.called.wait();
    other.join();
    first.silence();
    second.silence();
    HOLDS(second.calls >= 1 && first.calls >= second.calls);
}

// ---- Paced threads.

namespace {

class Source : public SeSourceProtocol
{
public:
    void start() override {}
    void stop() override {}
    std::uint32_t waitSync() override
    {
        _beats.wait();
        return ++_count;
    }
    double getRate() override { return 100; }
    char const *getName() override { return "source"; }
    std::ostream &dump(std::ostream &stream) override { return stream; }
    void beat() { _beats.post(); }

private:
    LkUnnamedSema _beats{"beats", 0};
    std::uint32_t _count = 0;
};

/// Gives the beats of a source while it exists.
class Beating
{
public:
    explicit Beating(Source &source)
        : _source(source), _isOver("over", false), _worker("beating", [this] {
              while (!_isOver.timedWait(0.01))
                  _source.beat();
          })
    {}
    ~Beating() { _isOver.set(); }

private:
    Source &_source;
    LkEvent _isOver;
    Worker _worker;
};

class Client : public SeClientThread
{
public:
    explicit Client(bool endsItself = false) : _endsItself(endsItself) {}
    bool performSync(std::uint32_t count, int late) override
    {
        HOLDS(!isRemoved && late >= 0 && static_cast<std::int32_t>(count - _last) >= 0);
        _last = count;
        ran.post();
        return _endsItself;
    }
    void performEnd() override { hasEnded = true; }

    LkUnnamedSema ran{"ran", 0};
    bool hasEnded = false;
    bool isRemoved = false;

private:
    bool _endsItself;
    std::uint32_t _last = 0;
};

SeSyncEngine &engine()
{
    return SeSyncEngine::getInstance();
}

/// Adds a client, lets it run twice, or once if it ends itself, and removes it.
void pace(char const *name, SeSourceProtocol &source, std::int32_t divisor, bool endsItself)
{
    ObjPtr<SeClientThread> owned(new Client(endsItself));
    auto &client = static_cast<Client &>(*owned);
    engine().addClient(name, owned, source, divisor);
    for (int i = 0; i < (endsItself ? 1 : 2); ++i)
        client.ran.wait();
    ObjPtr<SeClientThread> const back(engine().removeClient(&client));
    HOLDS(client.hasEnded);
    client.isRemoved = true;
}

} // namespace

SIMULATED(PacedThreadsComeAndGo, WITH_PACKAGES)
{
    InPackageScope const packages;
    Source source;
    {
        Beating const beating(source);
        Worker other("other", [&] { pace("other", source, 2, false); });
        pace("mine", source, 1, false);
        other.join();
        engine().stop();
    }
}

SIMULATED(PacedThreadEndsItself, WITH_PACKAGES)
{
    InPackageScope const packages;
    Source source;
    Beating const beating(source);
    pace("mine", source, 1, true);
    engine().stop();
}

SIMULATED(PacedThreadsAreStopped, WITH_PACKAGES)
{
    InPackageScope const packages;
    Source source;
    Beating const beating(source);
    for (char const *name : {"first", "second"}) {
        ObjPtr<SeClientThread> owned(new Client);
        engine().addClient(name, owned, source, 1);
    }
    Worker other("other", [&] { engine().waitSyncGenBeating(source); });
    other.join();
    engine().stop();
}

SIMULATED(PacedByTheClock, WITH_PACKAGES)
{
    InPackageScope const packages;
    pace("mine", SeSourceClock::getInstance(), 2, false);
    engine().stop();
}
