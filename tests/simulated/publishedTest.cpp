// What the words of the libraries publish to the threads that read them.
//
// The messages are plain data. If an order of the word is too weak, the programs that check plain
// data for races find that.
#include "simulated/streams.h"
#include "simulated/threadProtocols.h"

#include "resmgt/deviceManager/devMgrDevice.private.h"
#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"
#include "resmgt/locks/lkSingleton.imp.h"
#include "zvbase/baseLock.private.h"
#include "zvbase/hmHeapMgr.h"
#include "zvbase/inInit.h"
#include "zvbase/inPackage.h"
#include "zvbase/lgLog.h"
#include "zvbase/lgQueue.h"
#include "zvbase/lgRegistry.h"
#include "zvbase/lgRing.private.h"
#include "zvbase/sleeper.h"
#include "zvbase/traceEvents.h"
#include "zvbase/traceManager.h"
#include "zvbase/traceRing.private.h"
#include "zvbase/traceSession.h"
#include "zvbase/traceTags.private.h"

#include <cstring>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace ZvTest {
struct OneObject
{
    int value = 1;
};
} // namespace ZvTest
ZV_DEFINE_SINGLETON(ZvTest::OneObject, ZvTest::OneObject);

using namespace Zv;
using namespace Zv::Simulated;
using ZvPlatform::Order;
using ZvPlatform::Shared;

namespace {

constexpr Settings WITH_PACKAGES = {.schedules = 150, .leftOver = {64, 0}};

/// Plain data of one thread for another.
class Message
{
public:
    void write() { _text = 1; }
    void read() const { HOLDS(_text == 1); }

private:
    int _text = 0;
};

/// One thread writes a message and calls `publish`. If `isThere` returns true, the message must be
/// there.
template <class Publish, class IsThere>
void runPublished(Publish publish, IsThere isThere)
{
    Message message;
    Worker const writer("writer", [&] {
        message.write();
        publish();
    });
    if (isThere())
        message.read();
}

Message *letter = nullptr;

/// A function for the queues of the log.
LgQueue *readLetter()
{
    letter->read();
    return nullptr;
}

/// A registry like that of the logger.
class Queues : public LgRegistry
{
public:
    void addQueue(LgQueue *queue) override
    {
        LkGuard const guard(_lock);
        _queues.push_back(queue);
    }
    void removeQueue(LgQueue *queue) override
    {
        LkGuard const guard(_lock);
        _queues.remove(queue);
    }
    List<LgQueue *> getQueues() override
    {
        LkGuard const guard(_lock);
        return _queues;
    }

private:
    LkLock _lock{"queues"};
    List<LgQueue *> _queues;
};

/// Appends a record to a ring. Returns what `LgRing::publish` returns.
bool append(LgRing &ring, std::uint64_t length)
{
    std::uint64_t const text = ring.getTail() + LgRing::UNIT;
    std::memset(ring.at(text), 'x', length);
    return ring.publish(text + length, 0);
}

/// A manager of traces that writes to plain data when it has retired.
class Manager : public TraceManager
{
public:
    explicit Manager(int &state) : _state(state) { install(); }
    ~Manager() override
    {
        retire();
        ++_state;
    }
    Trace *getTrace() override
    {
        HOLDS(_state == 0);
        return &_trace;
    }
    void print(char const *) override {}

private:
    int &_state;
    Trace _trace;
};

} // namespace

// ---- Locks.

SIMULATED(PostIsSeenByEachWait)
{
    LkSema first("first", 0);
    LkSema second("second", 0);
    LkSema third("third", 0);
    runPublished([&] { first.post(); }, [&] { return first.wait(), true; });
    runPublished([&] { second.post(); }, [&] { return second.tryWait(); });
    runPublished([&] { third.post(); }, [&] { return third.timedWait(0.001); });
}

// The post finds a waiter, but another thread is faster.
SIMULATED(PostForAWaiterGoesToAnother, {.schedules = 500})
{
    LkSema sema("sema", 0);
    Message message;
    Worker const waiter("waiter", [&] {
        sema.wait();
        message.read();
    });
    Worker const poster("poster", [&] {
        message.write();
        sema.post();
        sema.post();
    });
    if (sema.tryWait())
        message.read();
}

SIMULATED(PulseIsSeenByTheNextWait)
{
    LkMutex mutex("mutex");
    LkPulse pulse("pulse", LkPulse::WAKE_ALL);
    runPublished([&] { pulse.pulse(); },
                 [&] {
                     LkGuard const guard(mutex);
                     return pulse.timedWaitNextPulse(guard, 0.001);
                 });
}

// Each side raises its counter, and enters if that of the other side is not raised.
SIMULATED(CountersHaveOneOrder, {.preemptions = 2})
{
    LkCounter<long> ours(0);
    LkCounter<long> theirs(0);
    int inside = 0;
    Worker other("other", [&] {
        ++theirs;
        if (ours.getValue() == 0)
            ++inside;
    });
    ++ours;
    if (theirs.getValue() == 0)
        ++inside;
    other.join();
    HOLDS(inside <= 1);
}

SIMULATED(CountersThatAreSetHaveOneOrder, {.preemptions = 2})
{
    LkCounter<long> ours(0);
    LkCounter<long> theirs(0);
    int inside = 0;
    Worker other("other", [&] {
        theirs = 1;
        if (ours.getValue() == 0)
            ++inside;
    });
    ours = 1;
    if (theirs.getValue() == 0)
        ++inside;
    other.join();
    HOLDS(inside <= 1);
}

SIMULATED(StateOfASingletonIsThatOfItsObject)
{
    using Singleton = LkSingleton<ZvTest::OneObject>;
    Worker const first("first", [] { HOLDS(Singleton::getInstance().value == 1); });
    if (Singleton::getState() == Singleton::INITIALIZED)
        Singleton::checkState();
    HOLDS(Singleton::getInstance().value == 1);
}

SIMULATED(StateOfADestroyedSingletonIsThatOfItsObject)
{
    using Singleton = LkSingleton<ZvTest::OneObject>;
    Singleton::getInstance();
    Worker const destroyer("destroyer", [] { Singleton::destroy(); });
    if (Singleton::getState() == Singleton::DESTROYED)
        Singleton::checkState();
}

// A reader comes after the writer without having waited.
SIMULATED(ReaderComesWhenTheWriterHasLeft, {.schedules = 500})
{
    LkRwLock lock("lock");
    int value = 0;
    Worker const writer("writer", [&] {
        lock.writeLock();
        ++value;
        lock.unlock();
    });
    lock.readLock();
    HOLDS(value == 0 || value == 1);
    lock.unlock();
}

SIMULATED(FirstUsersOfABaseLockMakeItsSection)
{
    static constinit BaseLock lock;
    int value = 0;
    auto const use = [&] {
        BaseGuard const guard(lock);
        ++value;
    };
    Worker const first("first", use);
    Worker const second("second", use);
    use();
}

// ---- Services.

SIMULATED(ObjectsPublishToWaits, {.onKernel = 300})
{
    HANDLE const objects[] = {::CreateEventA(nullptr, FALSE, FALSE, nullptr),
                              ::CreateEventA(nullptr, TRUE, FALSE, nullptr),
                              ::CreateSemaphoreA(nullptr, 0, 2, nullptr)};
    auto const signal = [&](int i) {
        HOLDS(i == 2 ? ::ReleaseSemaphore(objects[i], 1, nullptr) : ::SetEvent(objects[i]));
    };
    for (int i = 0; i < 3; ++i) {
        auto const wait = [&](DWORD milliseconds) {
            return ::WaitForSingleObject(objects[i], milliseconds) == WAIT_OBJECT_0;
        };
        runPublished([&] { signal(i); }, [&] { return wait(0); });
        // The message of the next thread is another one.
        if (i == 2)
            wait(0);
        else
            ::ResetEvent(objects[i]);
        runPublished([&] { signal(i); }, [&] { return wait(1); });
        ::CloseHandle(objects[i]);
    }
}

SIMULATED(OwnersOfALockShareItsData, {.onKernel = 300})
{
    HANDLE const mutex = ::CreateMutexA(nullptr, FALSE, nullptr);
    CRITICAL_SECTION section;
    ::InitializeCriticalSection(&section);
    int byMutex = 0;
    int bySection = 0;
    auto const work = [&](DWORD milliseconds) {
        if (::WaitForSingleObject(mutex, milliseconds) == WAIT_OBJECT_0) {
            ++byMutex;
            ::ReleaseMutex(mutex);
        }
        if (milliseconds != 0)
            ::EnterCriticalSection(&section);
        if (milliseconds != 0 || ::TryEnterCriticalSection(&section)) {
            ++bySection;
            ::LeaveCriticalSection(&section);
        }
    };
    {
        Worker const second("second", [&] { work(INFINITE); });
        Worker const third("third", [&] { work(0); });
        work(INFINITE);
    }
    HOLDS(byMutex >= 2 && bySection >= 2);
    ::DeleteCriticalSection(&section);
    ::CloseHandle(mutex);
}

// A unit passes from owner to owner, and with it the data.
SIMULATED(OwnersOfAUnitShareItsData, {.onKernel = 500})
{
    HANDLE const event = ::CreateEventA(nullptr, FALSE, TRUE, nullptr);
    HANDLE const semaphore = ::CreateSemaphoreA(nullptr, 1, 1, nullptr);
    int byEvent = 0;
    int bySemaphore = 0;
    auto const work = [&] {
        HOLDS(::WaitForSingleObject(event, INFINITE) == WAIT_OBJECT_0);
        ++byEvent;
        HOLDS(::SetEvent(event));
        HOLDS(::WaitForSingleObject(semaphore, INFINITE) == WAIT_OBJECT_0);
        ++bySemaphore;
        HOLDS(::ReleaseSemaphore(semaphore, 1, nullptr));
    };
    {
        Worker const other("other", work);
        work();
    }
    HOLDS(byEvent == 2 && bySemaphore == 2);
    ::CloseHandle(semaphore);
    ::CloseHandle(event);
}

// If the event was set before the reset, what was announced is there.
SIMULATED(ResetSeesWhatTheSetAnnounced, {.onKernel = 300, .preemptions = 2})
{
    HANDLE const event = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    Shared<int> work{0};
    {
        Worker const announcer("announcer", [&] {
            work.store(1, Order::RELAXED);
            ::SetEvent(event);
        });
        ::ResetEvent(event);
        if (work.load(Order::RELAXED) == 0)
            ::WaitForSingleObject(event, INFINITE);
    }
    ::CloseHandle(event);
}

// Nothing orders the use of the handle after the creation of the object.
SIMULATED(HandleIsPassedByARelaxedWord, {.onKernel = 300, .leftOver = {1, 0}})
{
    Shared<HANDLE> passed{nullptr};
    Worker const maker("maker", [&] {
        passed.store(::CreateEventA(nullptr, FALSE, FALSE, nullptr), Order::RELAXED);
    });
    if (HANDLE const event = passed.load(Order::RELAXED))
        ::SetEvent(event);
}

// The handle of a closed object may be that of a new one.
SIMULATED(FormerHandleMeetsANewObject, {.onKernel = 300, .leftOver = {1, 0}})
{
    HANDLE const former = ::CreateEventA(nullptr, FALSE, FALSE, nullptr);
    Worker const other("other", [former] { ::WaitForSingleObject(former, 1); });
    ::CloseHandle(former);
    HANDLE const next = ::CreateSemaphoreA(nullptr, 1, 1, nullptr);
    step("the new object is there");
    ::CloseHandle(next);
}

SIMULATED(ProcessorsAreAskedForWhileTheMainThreadIsPlaced, {.onKernel = 300})
{
    Worker const other("other", [] {
        DWORD_PTR process = 0;
        DWORD_PTR system = 0;
        HOLDS(::GetProcessAffinityMask(::GetCurrentProcess(), &process, &system));
    });
    ::SetThreadAffinityMask(::GetCurrentThread(), 1);
    ::SetThreadAffinityMask(::GetCurrentThread(), 1);
}

// ---- Threads and packages.

SIMULATED(ThreadThatHasEndedHasPublished, WITH_PACKAGES)
{
    InPackageScope const packages;
    Message message;
    ObjPtr<MtThread> thread(makeThread("once", new Once([&] { message.write(); })));
    thread->start();
    Worker const joiner("joiner", [&] { thread->join(); });
    if (!thread->isRunning())
        message.read();
    thread->join();
}

SIMULATED(OpenPackagesAreUp, WITH_PACKAGES)
{
    Message message;
    LkUnnamedSema done("done", 0);
    Worker const opener("opener", [&] {
        message.write();
        InPackageScope const packages;
        done.wait();
    });
    if (InPackageScope::isOpen() || InInit<ZvInit::base>::isInitialized())
        message.read();
    ::Sleep(1);
    if (InPackageScope::isOpen())
        message.read();
    done.post();
}

SIMULATED(ScopesThatAreLeftKeepThePackagesUp, WITH_PACKAGES)
{
    Message message;
    LkUnnamedSema done("done", 0);
    Worker const opener("opener", [&] {
        message.write();
        InPackageScope const packages;
        {
            InPackageScope const more;
        }
        done.wait();
    });
    ::Sleep(1);
    if (InPackageScope::isOpen())
        message.read();
    done.post();
}

SIMULATED(FirstCallersMakeOneObject)
{
    auto const call = [] {
        HOLDS(HmHeapMgr::getInstance().getNbWarmUps() == 0);
        HOLDS(Sleeper::getInstance().getTime() >= 0);
        HOLDS(TraceManager::getInstance()->getTrace());
    };
    Worker const other("other", call);
    call();
}

// ---- Devices.

SIMULATED(FailureOfAnOpeningIsThere)
{
    auto const device = makeShd<DevMgrDevice>("device", nullptr, makeShd<DevMgrProgress>());
    Worker const opener("opener", [device] {
        device->failToOpen(std::make_exception_ptr(std::runtime_error("failure")));
    });
    if (device->getState() == DevMgrDevice::UNOPENED)
        HOLDS(device->getOpenFailure());
}

SIMULATED(EndOfADeviceIsSeenWithoutAWait)
{
    auto const device = makeShd<DevSeqTreeNodeUtil>("device");
    runPublished([&] { device->postDone(); }, [&] { return device->hasEnded(); });
}

SIMULATED(StreamsThatAreFreeHaveBeenReleased)
{
    Source source("source", "");
    source.start();
    runPublished([&] { source.stop(); }, [&] { return source.isAvailable(); });
    runPublished([&] { source.start(); }, [&] { return !source.isAvailable(); });
    runPublished([&] { source.stop(); },
                 [&] {
                     Source copy(source);
                     return copy.isAvailable();
                 });
    Source other("other", "");
    runPublished([&] { source.start(); },
                 [&] {
                     other = source;
                     return !other.isAvailable();
                 });
    other = source;
    source.stop();
    runPublished([&] { other = source; }, [&] { return other.isAvailable(); });
}

// ---- Log.

SIMULATED(FunctionOfTheQueuesFindsItsData)
{
    Message message;
    Worker const setter("setter", [&] {
        message.write();
        letter = &message;
        LgLog::setQueueFunction(&readLetter);
    });
    LgLog::getQueue();
}

// The thread has used its queue until the end. The reader deletes the queue.
SIMULATED(QueueGoesWhenItsThreadHasEnded, {.onKernel = 100})
{
    Queues * const queues = new Queues;
    ObjPtr<LgRegistry> former(LgLog::setRegistry(ObjPtr<LgRegistry>(queues)));
    Worker writer("writer", [] {
        LgQueue * const queue = new LgQueue(7);
        LgLog::registerQueue(queue);
        {
            LgQueue::SuppressGuard const use(*queue);
        }
        queue->creatorExit();
    });
    LgLog::flush();
    ::Sleep(0);
    LgLog::flush();
    writer.join();
    LgLog::flush();
    HOLDS(queues->getQueues().empty());
    ObjPtr<LgRegistry> const mine(LgLog::setRegistry(former));
}

// If a writer has seen the logger, the last look at the queues, which comes after the logger has
// been stopped, finds the record.
SIMULATED(RecordIsSeenByTheLastLook, {.preemptions = 2})
{
    LgRing ring(4 * LgRing::UNIT);
    LgLog::setLoggerActive(true);
    bool isServed = false;
    Worker writer("writer", [&] { isServed = append(ring, 4); });
    LgLog::setLoggerActive(false);
    bool const isAnnounced = ring.getAnnouncement() % 2 != 0;
    bool const isFound = ring.getFront();
    writer.join();
    HOLDS(!isServed || isAnnounced || isFound);
}

SIMULATED(RecordIsThereWhenItsAnnouncementIsOver)
{
    LgRing ring(4 * LgRing::UNIT);
    Worker const writer("writer", [&] { append(ring, 4); });
    if (ring.getAnnouncement() == 2)
        HOLDS(ring.getFront());
}

SIMULATED(RingThatIsNotEmptyHasAPublishedRecord)
{
    LgRing ring(4 * LgRing::UNIT);
    runPublished([&] { append(ring, 4); }, [&] { return !ring.isEmpty(); });
}

SIMULATED(EmptyRingHasBeenRead)
{
    LgRing ring(4 * LgRing::UNIT);
    int nbRead = 0;
    Worker const writer("writer", [&] {
        append(ring, 4);
        if (ring.isEmpty())
            HOLDS(nbRead == 1);
    });
    if (ring.getFront()) {
        ++nbRead;
        ring.pop();
    }
}

// The memory of a line is used by its writer, by the reader, and by the writer of a later line.
SIMULATED(LinesPassThroughARing)
{
    constexpr int LINES = 5;
    constexpr std::uint64_t LENGTH = 4;
    LgRing ring(4 * LgRing::UNIT);
    int nbLost = 0;
    Worker writer("writer", [&] {
        for (int i = 0; i < LINES; ++i) {
            std::uint64_t const text = ring.getTail() + LgRing::UNIT;
            // A line needs a unit for its header, one for its text, and one for the next header.
            if (text + 2 * LgRing::UNIT > ring.getLimit()) {
                ring.countLoss(LENGTH);
                ++nbLost;
                continue;
            }
            ring.setReserved(text + LENGTH);
            std::memset(ring.at(text), 'x', LENGTH);
            ring.publish(text + LENGTH, 0);
        }
    });
    int nbRead = 0;
    auto const read = [&] {
        while (ring.getFront()) {
            std::string text;
            ring.readFront(text);
            HOLDS(text == "xxxx");
            ring.pop();
            ++nbRead;
        }
    };
    read();
    // Each lost line has its characters.
    std::uint64_t const lines = ring.getNbLostLines();
    HOLDS(ring.getNbLostCharacters() >= LENGTH * lines);
    HOLDS(ring.getNbFree() <= ring.getCapacity());
    ::Sleep(0);
    read();
    writer.join();
    read();
    HOLDS(ring.isEmpty() && nbRead + nbLost == LINES);
}

// ---- Trace.

SIMULATED(ManagerRetiresBesideALine, {.schedules = 500, .preemptions = 2})
{
    int state = 0;
    std::optional<Manager> manager(state);
    Worker const writer("writer", [] {
        std::ostringstream line;
        TraceTags::write(line);
    });
    manager.reset();
}

SIMULATED(ManagerThatIsInChargeIsWhole)
{
    int state = 0;
    std::optional<Manager> manager;
    Worker installer("installer", [&] { manager.emplace(state); });
    HOLDS(TraceManager::getInstance()->getTrace());
    installer.join();
}

SIMULATED(TagsOfAGenerationAreThoseOfItsManager, {.preemptions = 2})
{
    unsigned const before = TraceTags::getGeneration();
    TraceManager * const former = TraceManager::getInstance();
    int state = 0;
    std::optional<Manager> manager;
    Worker installer("installer", [&] { manager.emplace(state); });
    if (TraceTags::getGeneration() != before)
        HOLDS(TraceManager::getInstance() != former);
    installer.join();
}

SIMULATED(TagsOfAGenerationAreNotThoseOfARetiredManager, {.preemptions = 2})
{
    int state = 0;
    std::optional<Manager> manager(state);
    TraceManager * const retired = &*manager;
    unsigned const before = TraceTags::getGeneration();
    Worker const retirer("retirer", [&] { manager.reset(); });
    if (TraceTags::getGeneration() != before)
        HOLDS(TraceManager::getInstance() != retired);
}

// The thread that writes the file finds the ring and each event of the session. Another thread finds
// the ring without having been told of the session.
SIMULATED(EventsOfASessionAreInItsFile, {.schedules = 20, .leftOver = {1, 0}})
{
    int const file = ::memfd_create("events", 0);
    {
        Shared<bool> isOn{false};
        Worker const other("other", [&] {
            while (!isOn.load(Order::RELAXED))
                ::Sleep(1);
            TraceEvents::instant("test", "theirs");
        });
        TraceSession session("/proc/self/fd/" + std::to_string(file));
        isOn.store(true, Order::RELAXED);
        ::Sleep(5);
        TraceEvents::instant("test", "ours");
        session.stop();
    }
    char text[4096] = {};
    HOLDS(::pread(file, text, sizeof text - 1, 0) > 0);
    HOLDS(std::strstr(text, "ours"));
}

// A place of the ring is used by its writer, by the reader, and by the writer of the next round.
SIMULATED(RecordsPassThroughARing, {.schedules = 500})
{
    constexpr int RECORDS = 3;
    TraceRing ring(2);
    auto const write = [&ring] {
        for (int i = 0; i < RECORDS; ++i) {
            std::uint64_t position = 0;
            if (TraceRecord * const record = ring.claim(position)) {
                record->value = 1;
                ring.publish(*record, position);
            }
        }
    };
    Worker first("first", write);
    Worker second("second", write);
    std::uint64_t nbRead = 0;
    auto const read = [&] {
        while (TraceRecord const * const record = ring.getFront()) {
            HOLDS(record->value == 1);
            ring.pop();
            ++nbRead;
        }
    };
    read();
    ::Sleep(0);
    read();
    first.join();
    second.join();
    read();
    HOLDS(nbRead + ring.getNbLost() == 2 * RECORDS);
}
