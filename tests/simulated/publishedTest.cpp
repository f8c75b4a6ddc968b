// What the words of the libraries publish to the threads that read them.
//
// The messages are plain data. If an order of the word is too weak, the programs that check plain
// data for races find that.
#include "simulated/threadProtocols.h"

#include "resmgt/locks/lkSingleton.imp.h"
#include "zvbase/hmHeapMgr.h"
#include "zvbase/inInit.h"
#include "zvbase/inPackage.h"
#include "zvbase/lgRing.private.h"
#include "zvbase/sleeper.h"
#include "zvbase/traceManager.h"
#include "zvbase/traceRing.private.h"
#include "zvbase/traceTags.private.h"

#include <cstring>
#include <optional>
#include <sstream>
#include <string>

namespace ZvTest {
struct OneObject
{
    int value = 1;
};
} // namespace ZvTest
ZV_DEFINE_SINGLETON(ZvTest::OneObject, ZvTest::OneObject);

using namespace Zv;
using namespace Zv::Simulated;

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

// ---- Log.

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
