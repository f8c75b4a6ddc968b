// Buffers that are shared, compete for memory, and are loaded and written back by other threads.
#include "simulated/scenario.h"

#include "resmgt/dynamicAllocation.h"
#include "resmgt/locks.h"
#include "resmgt/memoryBuffers.h"
#include "zvbase/inPackage.h"

#include <cstdint>
#include <cstring>
#include <functional>
#include <sstream>

using namespace Zv;
using namespace Zv::Simulated;

namespace {

constexpr int SIZE = sizeof(std::int64_t);
MbAlignment const ALIGNMENT(7, 0, 0);

constexpr Settings WITH_BUFFERS = {
    .schedules = 200, .leftOver = {64, 0}, .prepare = [] { MbStateMachine::getInstance(false); }};

/// Contents of a buffer while it is unloaded, and what its calls do.
struct Storage
{
    std::int64_t value = 0;
    int unloads = 0;
    bool isGone = false;
    bool isBusy = false;
    /// Gets the work of each asynchronous call. If it is empty, the work is done inside the call.
    std::function<void(std::function<void()>)> defer;
    /// Called inside each asynchronous call and inside `sync`.
    std::function<void()> inside;
    bool fails = false;
};

class Contents : public MbProtocol
{
public:
    explicit Contents(Storage &storage) : _storage(storage) {}
    ~Contents() noexcept(false) override { _storage.isGone = true; }

    void reload(void *memory, std::uint64_t size) override
    {
        Busy const busy(_storage);
        HOLDS(size == SIZE);
        *static_cast<std::int64_t *>(memory) = _storage.value;
    }
    void asyncReload(void *memory, std::uint64_t size, LkAsyncHandle *handle) override
    {
        begin([this, memory, size] { reload(memory, size); }, handle);
    }
    void sync(void *memory, std::uint64_t size) override
    {
        if (_storage.inside)
            _storage.inside();
        unload(memory, size);
    }
    void unload(void *memory, std::uint64_t) override
    {
        Busy const busy(_storage);
        _storage.value = *static_cast<std::int64_t *>(memory);
        ++_storage.unloads;
    }
    void asyncSync(void *memory, std::uint64_t size, LkAsyncHandle *handle) override
    {
        begin([this, memory, size] { unload(memory, size); }, handle);
    }
    void free(void *memory, std::uint64_t size) override { unload(memory, size); }

private:
    /// Checks that two calls for one buffer never overlap.
    class Busy
    {
    public:
        explicit Busy(Storage &storage) : _storage(storage)
        {
            HOLDS(!_storage.isBusy && !_storage.isGone);
            _storage.isBusy = true;
            step("moving contents");
        }
        ~Busy() { _storage.isBusy = false; }

    private:
        Storage &_storage;
    };

    void begin(std::function<void()> work, LkAsyncHandle *handle)
    {
        auto const whole = [this, work, handle] {
            if (_storage.fails) {
                handle->performFailed();
            } else {
                work();
                handle->performSucceeded();
            }
        };
        if (_storage.defer)
            _storage.defer(whole);
        else
            whole();
        if (_storage.inside)
            _storage.inside();
    }

    Storage &_storage;
};

/// Record of the calls for a buffer. The program itself ends the asynchronous operations.
struct Telling
{
    LkAsyncHandle *handle = nullptr;
    /// Called inside each call that begins an operation.
    std::function<void()> inside;
    int operations = 0;
    int results = 0;
    int frees = 0;
    bool fails = true; // the first result throws
    bool isGone = false;
};

class Told : public MbProtocol
{
public:
    explicit Told(Telling &telling) : _telling(telling) {}
    ~Told() noexcept(false) override { _telling.isGone = true; }

    void asyncReload(void *, std::uint64_t, LkAsyncHandle *handle) override { begin(handle); }
    void asyncReloadSucceeded() override { tell(); }
    void asyncReloadFailed() override { tell(); }
    void asyncSync(void *, std::uint64_t, LkAsyncHandle *handle) override { begin(handle); }
    void asyncSyncSucceeded() override { tell(); }
    void asyncSyncFailed() override { tell(); }
    void free(void *, std::uint64_t) override
    {
        step("giving contents up");
        ++_telling.frees;
    }

private:
    void begin(LkAsyncHandle *handle)
    {
        _telling.handle = handle;
        if (_telling.inside)
            _telling.inside();
    }
    void tell()
    {
        step("telling a result");
        if (++_telling.results == 1 && _telling.fails)
            throw 1;
    }

    Telling &_telling;
};

/// A thread that does the work of one asynchronous call for a buffer.
class Servant
{
public:
    explicit Servant(Storage &storage)
        : _worker("servant", [this] {
              _given.wait();
              if (_work)
                  _work();
          })
    {
        storage.defer = [this](std::function<void()> work) {
            HOLDS(!_work);
            _work = std::move(work);
            _given.post();
        };
    }
    /// Ends the thread if there was no such call.
    void dismiss() { _given.post(); }
    void join() { _worker.join(); }

private:
    LkUnnamedSema _given{"given", 0};
    std::function<void()> _work;
    Worker _worker;
};

MbBuffer makeBuffer(char const *name, ObjPtr<MbProtocol> protocol,
                    RCShdPtr<MbManager> const &manager)
{
    MbBufferSimpleFactory factory(MbStateMachine::getInstance(false).getInitialState(), manager);
    return factory.create(name, protocol, SIZE, ALIGNMENT);
}

MbBuffer makeBuffer(char const *name, Storage &storage, RCShdPtr<MbManager> const &manager)
{
    return makeBuffer(name, makeObj<Contents>(storage), manager);
}

MbBuffer makeBuffer(char const *name, Telling &telling, RCShdPtr<MbManager> const &manager)
{
    return makeBuffer(name, makeObj<Told>(telling), manager);
}

/// Returns a manager with memory for `nbBuffers` of these buffers.
RCShdPtr<MbManager> makeManager(unsigned nbBuffers)
{
    std::uint64_t const each = SIZE + ALIGNMENT.getRoundUpMax(1);
    return RCShdPtr<MbManager>(
        new MbHeapManager("manager", nbBuffers * each, makeObj<MbUnloadLRU>(0)));
}

void increment(MbBuffer const &buffer)
{
    MbBufferWrGuardImp const guard(buffer);
    auto &value = *static_cast<std::int64_t *>(guard.getMemory());
    std::int64_t const old = value;
    step("writing");
    HOLDS(value == old);
    value = old + 1;
}

std::int64_t read(MbBuffer const &buffer)
{
    MbBufferRdGuardImp const guard(buffer);
    auto const &value = *static_cast<std::int64_t const *>(guard.getMemory());
    std::int64_t const old = value;
    step("reading");
    HOLDS(value == old);
    return old;
}

} // namespace

SIMULATED(BufferReadAndWritten, WITH_BUFFERS)
{
    Storage storage;
    MbBuffer buffer = makeBuffer("buffer", storage, makeManager(1));
    Worker first("first", [buffer] { increment(buffer); });
    Worker second("second", [buffer] { increment(buffer); });
    Worker reader("reader", [buffer] { HOLDS(read(buffer) <= read(buffer)); });
    first.join();
    second.join();
    HOLDS(read(buffer) == 2);
    reader.join();
}

SIMULATED(BuffersCompeteForMemory, WITH_BUFFERS)
{
    Storage storages[3];
    RCShdPtr<MbManager> const manager = makeManager(1);
    MbBuffer buffers[3];
    for (int i = 0; i < 3; ++i)
        buffers[i] = makeBuffer("buffer", storages[i], manager);
    auto const work = [&](MbBuffer const &mine, MbBuffer const &shared) {
        increment(mine);
        increment(shared);
        HOLDS(read(mine) == 1);
    };
    Worker other("other", [&] { work(buffers[1], buffers[2]); });
    work(buffers[0], buffers[2]);
    other.join();
    HOLDS(read(buffers[2]) == 2);
}

SIMULATED(BuffersCompeteForTheLastPlace, WITH_BUFFERS)
{
    Storage storages[3];
    RCShdPtr<MbManager> const manager = makeManager(2);
    MbBuffer buffers[3];
    for (int i = 0; i < 3; ++i)
        buffers[i] = makeBuffer("buffer", storages[i], manager);
    Worker first("first", [&] { increment(buffers[0]); });
    Worker second("second", [&] { increment(buffers[1]); });
    increment(buffers[2]);
    first.join();
    second.join();
    for (MbBuffer const &buffer : buffers)
        HOLDS(read(buffer) == 1);
}

/// Two threads load unloaded buffers at the same time, and evict each other's. The buffer that they
/// evict first loses its last handle meanwhile.
SIMULATED(UnloadedBuffersAreLoadedAndTheVictimGoes, WITH_BUFFERS)
{
    Storage storages[3];
    RCShdPtr<MbManager> const manager = makeManager(1);
    MbBuffer buffers[3];
    for (int i = 0; i < 3; ++i) {
        buffers[i] = makeBuffer("buffer", storages[i], manager);
        increment(buffers[i]);
    }
    Worker first("first", [&] {
        increment(buffers[0]);
        HOLDS(read(buffers[1]) == 1);
    });
    Worker second("second", [&] { increment(buffers[0]); });
    buffers[2] = MbBuffer();
    first.join();
    second.join();
    HOLDS(storages[2].isGone && storages[2].value == 1);
    HOLDS(read(buffers[0]) == 3);
}

/// The strategy evicts a random buffer, while another thread asks about the buffers.
SIMULATED(BuffersOfAnyOrderCompete, WITH_BUFFERS)
{
    Storage storages[4];
    std::uint64_t const each = SIZE + ALIGNMENT.getRoundUpMax(1);
    RCShdPtr<MbManager> const manager(
        new MbHeapManager("manager", 2 * each, makeObj<MbUnloadRandom>(0)));
    MbBuffer buffers[4];
    for (int i = 0; i < 4; ++i)
        buffers[i] = makeBuffer("buffer", storages[i], manager);
    auto const work = [&](int mine) {
        increment(buffers[mine]);
        increment(buffers[3]);
        HOLDS(read(buffers[mine]) == 1);
    };
    Worker first("first", [&] { work(0); });
    Worker second("second", [&] {
        work(1);
        buffers[1] = MbBuffer();
        HOLDS(storages[1].value == 1);
    });
    Worker looking("looking", [&] {
        std::ostringstream text;
        manager->dump(text);
        static_cast<void>(buffers[0].isLoaded());
    });
    work(2);
    first.join();
    second.join();
    // The last handle may have been that of a thread that had chosen the buffer for eviction.
    HOLDS(storages[1].isGone);
    HOLDS(read(buffers[3]) == 3);
}

/// A buffer that is destroyed gives its memory to a thread that waits for memory.
SIMULATED(BufferGoesWhileAnotherWaits, WITH_BUFFERS)
{
    Storage storages[3];
    RCShdPtr<MbManager> const manager = makeManager(1);
    auto const work = [&](Storage &storage) {
        MbBuffer const buffer = makeBuffer("buffer", storage, manager);
        increment(buffer);
    };
    Worker first("first", [&] { work(storages[0]); });
    Worker second("second", [&] { work(storages[1]); });
    work(storages[2]);
    first.join();
    second.join();
    for (Storage const &storage : storages)
        HOLDS(storage.isGone && storage.value == 1);
}

SIMULATED(BuffersCompeteForAnArena, WITH_BUFFERS)
{
    Storage storages[3];
    RCShdPtr<MbManager> const manager(new MbArenaManager(
        "arena",
        ObjPtr<DaArenaPool>(DaArenaPool::create(DaMemoryMapAllocator::create("pages"), 2 * SIZE)),
        makeObj<MbUnloadLRU>(0)));
    MbBuffer buffers[3];
    for (int i = 0; i < 3; ++i)
        buffers[i] = makeBuffer("buffer", storages[i], manager);
    auto const work = [&](MbBuffer const &mine, MbBuffer const &shared) {
        increment(shared);
        increment(mine);
        HOLDS(read(mine) == 1);
    };
    Worker other("other", [&] { work(buffers[1], buffers[2]); });
    work(buffers[0], buffers[2]);
    other.join();
    HOLDS(read(buffers[2]) == 2);
}

SIMULATED(BufferLoadedByAnother, WITH_BUFFERS)
{
    Storage storage;
    storage.value = 7;
    MbBuffer buffer = makeBuffer("buffer", storage, makeManager(1));
    Servant servant(storage);
    Worker other("other", [buffer] { HOLDS(read(buffer) == 7); });
    buffer.prefetch();
    HOLDS(read(buffer) == 7);
    other.join();
    servant.dismiss(); // the other thread may have loaded it before
    servant.join();
}

SIMULATED(BufferCannotBeLoadedByAnother, WITH_BUFFERS)
{
    Storage storage;
    storage.value = 7;
    MbBuffer buffer = makeBuffer("buffer", storage, makeManager(1));
    storage.fails = true;
    Servant servant(storage);
    buffer.prefetch();
    // A guard loads the buffer itself then.
    Worker other("other", [buffer] { HOLDS(read(buffer) == 7); });
    HOLDS(read(buffer) == 7);
    other.join();
    servant.join();
}

SIMULATED(BufferWrittenBackByAnotherAsItGoes, WITH_BUFFERS)
{
    Storage storage;
    {
        MbBuffer buffer = makeBuffer("buffer", storage, makeManager(1));
        Servant servant(storage);
        increment(buffer);
        buffer.asyncSync();
        buffer = MbBuffer();
        HOLDS(storage.isGone);
        servant.join();
    }
    HOLDS(storage.value == 1);
}

SIMULATED(BufferWrittenBackWhileItIsUsed, WITH_BUFFERS)
{
    Storage storage;
    MbBuffer buffer = makeBuffer("buffer", storage, makeManager(1));
    Worker writer("writer", [buffer]() mutable {
        increment(buffer);
        buffer.sync();
    });
    Worker other("other", [buffer]() mutable { buffer.asyncSync(); });
    increment(buffer);
    buffer.asyncSync();
    writer.join();
    other.join();
    HOLDS(read(buffer) == 2);
    buffer.sync();
    HOLDS(storage.value == 2);
}

SIMULATED(BufferGivenUpWhileItIsUsed, WITH_BUFFERS)
{
    Storage storage;
    MbBuffer buffer = makeBuffer("buffer", storage, makeManager(1));
    Worker writer("writer", [buffer] { increment(buffer); });
    Worker other("other", [buffer]() mutable { buffer.free(); });
    increment(buffer);
    writer.join();
    other.join();
    HOLDS(read(buffer) == 2);
}

SIMULATED(BufferGoesWithItsLastGuard, WITH_BUFFERS)
{
    Storage storage;
    {
        MbBuffer buffer = makeBuffer("buffer", storage, makeManager(1));
        Worker reader("reader", [guard = MbBufferRdGuardImp(buffer)]() mutable {
            HOLDS(*static_cast<std::int64_t const *>(guard.getMemory()) == 0);
            guard = MbBufferRdGuardImp();
        });
        buffer = MbBuffer();
    }
    HOLDS(storage.isGone);
}

/// A buffer is chosen for eviction, but it is freed and loaded again before it is unloaded. The
/// load waits for memory that only the thread that has chosen the buffer can give.
SIMULATED(BufferLoadedAgainWhileItIsChosen,
          {.schedules = 300, .preemptions = 1, .leftOver = {64, 0}, .prepare = [] {
               MbStateMachine::getInstance(false);
           }})
{
    constexpr int UNIT = 16;
    RCShdPtr<MbManager> const manager(
        new MbHeapManager("manager", 3 * UNIT, makeObj<MbUnloadLRU>(0)));
    MbBufferSimpleFactory factory(MbStateMachine::getInstance(false).getInitialState(), manager);
    auto const make = [&](char const *name, int units) {
        return factory.create(name, units * UNIT, MbAlignment(0, 0, 0));
    };
    MbBuffer const held = make("held", 1);
    MbBuffer const wanted = make("wanted", 1);
    MbBuffer const other = make("other", 1);
    MbBuffer chosen = make("chosen", 2);
    {
        MbBufferRdGuardImp const first(held);
        MbBufferRdGuardImp const second(chosen);
    }
    Worker again("again", [&] {
        chosen.free();
        MbBufferRdGuardImp const first(other);
        MbBufferRdGuardImp const second(chosen);
    });
    {
        MbBufferRdGuardImp const first(held);
        MbBufferRdGuardImp const second(wanted);
    }
    again.join();
}

/// While a thread waits for memory for a buffer, other threads can ask about that buffer.
SIMULATED(NameIsAskedWhileMemoryIsWaitedFor, WITH_BUFFERS)
{
    Storage storages[2];
    RCShdPtr<MbManager> const manager = makeManager(1);
    MbBuffer const held = makeBuffer("held", storages[0], manager);
    MbBuffer const wanted = makeBuffer("wanted", storages[1], manager);
    MbBufferRdGuardImp guard(held);
    Worker loader("loader", [wanted] { HOLDS(read(wanted) == 0); });
    HOLDS(std::strcmp(wanted.getName(), "wanted") == 0);
    HOLDS(!wanted.isLoaded());
    guard = MbBufferRdGuardImp();
    loader.join();
}

/// The last handle is destroyed inside `asyncLoad`, which then waits for the thread that reports
/// the end.
SIMULATED(LastHandleGoesInsideACallThatAnotherThreadEnds, WITH_BUFFERS)
{
    Storage storage;
    MbBuffer buffer = makeBuffer("buffer", storage, makeManager(1));
    Servant servant(storage);
    storage.inside = [&] {
        buffer = MbBuffer();
        servant.join();
        HOLDS(!storage.isGone);
    };
    buffer.prefetch();
    HOLDS(storage.isGone);
}

/// The buffer is freed and its last handle is destroyed inside `asyncLoad`. The operation may end
/// at any time.
SIMULATED(BufferIsFreedAndItsLastHandleGoesInsideACall, WITH_BUFFERS)
{
    Storage storage;
    MbBuffer buffer = makeBuffer("buffer", storage, makeManager(1));
    Servant servant(storage);
    storage.inside = [&] {
        buffer.free();
        buffer = MbBuffer();
    };
    buffer.prefetch();
    // The thread that ran `asyncLoad` has destroyed the buffer on its way out, not the thread that
    // reports the end.
    HOLDS(storage.isGone);
    servant.join();
}

/// A thread that needs memory has chosen a buffer whose last handle is destroyed inside its `sync`.
/// The thread evicts another buffer instead.
SIMULATED(LastHandleOfAVictimGoesInsideACall, WITH_BUFFERS)
{
    Storage storages[3];
    RCShdPtr<MbManager> const manager = makeManager(2);
    MbBuffer victim = makeBuffer("victim", storages[0], manager);
    MbBuffer const other = makeBuffer("other", storages[1], manager);
    MbBuffer const wanted = makeBuffer("wanted", storages[2], manager);
    static_cast<void>(read(victim));
    static_cast<void>(read(other));
    Worker stranger("stranger", [wanted] { HOLDS(read(wanted) == 0); });
    bool hasGone = false;
    storages[0].inside = [&] {
        victim = MbBuffer();
        stranger.join();
        hasGone = true;
    };
    victim.sync();
    HOLDS(storages[0].isGone == hasGone);
    stranger.join();
}

/// The last handle is destroyed while the result of an operation is reported. The first report
/// fails, and is repeated.
SIMULATED(LastHandleGoesWhileAResultIsToldAgain, WITH_BUFFERS)
{
    Telling telling;
    MbBuffer buffer = makeBuffer("buffer", telling, makeManager(1));
    buffer.prefetch();
    Worker teller("teller", [&] {
        LkAsyncHandle * const handle = telling.handle;
        try {
            handle->performSucceeded();
            HOLDS(false);
        } catch (int) {
            handle->performSucceeded();
        }
    });
    buffer = MbBuffer();
    HOLDS(telling.results == 2 && telling.isGone);
    teller.join();
}

/// Each event that can be deferred inside a call that begins an operation, with each result of the
/// operation at any time.
SIMULATED(EventsArePutOffInsideACallThatCompletes, WITH_BUFFERS)
{
    enum Operation
    {
        LOAD,
        RELOAD,
        SYNC
    };
    for (Operation const operation : {LOAD, RELOAD, SYNC})
        for (bool const frees : {false, true})
            for (bool const succeeds : {false, true}) {
                Telling telling;
                telling.fails = false;
                MbBuffer buffer = makeBuffer("buffer", telling, makeManager(1));
                if (operation != LOAD)
                    MbBufferRdGuardImp const guard(buffer);
                if (operation == RELOAD)
                    buffer.getImp()->receive(MbEvent::UNLOAD);
                LkUnnamedSema begun("begun", 0);
                Worker teller("teller", [&] {
                    begun.wait();
                    if (succeeds)
                        telling.handle->performSucceeded();
                    else
                        telling.handle->performFailed();
                });
                telling.inside = [&] {
                    if (++telling.operations == 1) {
                        begun.post();
                        step("before the event");
                        if (frees)
                            buffer.free();
                        else
                            buffer.asyncSync();
                    } else {
                        telling.handle->performSucceeded(); // of the deferred operation
                    }
                };
                if (operation == SYNC)
                    buffer.asyncSync();
                else
                    buffer.prefetch();
                teller.join();
                bool const isLoaded = succeeds || operation == SYNC;
                HOLDS(buffer.isLoaded() == (isLoaded && !frees));
                HOLDS(telling.frees == (isLoaded && frees ? 1 : 0));
                // Contents that have not been written back are written back afterwards.
                bool const synchsAgain = !frees && isLoaded && !(operation == SYNC && succeeds);
                HOLDS(telling.operations == (synchsAgain ? 2 : 1));
            }
}

/// Two guards on different threads share one hold for writing.
SIMULATED(BufferWrittenUnderASharedHold, WITH_BUFFERS)
{
    Storage storage;
    MbBuffer buffer = makeBuffer("buffer", storage, makeManager(1));
    LkCounter<long> isOver;
    {
        MbBufferWrGuardImp mine(buffer);
        Worker sharing("sharing", [guard = MbBufferWrGuardImp(mine), &isOver]() mutable {
            MbBufferWrGuardImp const copy(guard);
            guard = MbBufferWrGuardImp();
            step("the last that holds it");
            ++*static_cast<std::int64_t *>(copy.getMemory());
            ++isOver;
        });
        Worker reader("reader", [&] { HOLDS(read(buffer) == 1 && isOver.getValue() == 1); });
        mine = MbBufferWrGuardImp();
        sharing.join();
    }
}

SIMULATED(BufferOfTwoOthers, WITH_BUFFERS)
{
    Storage storages[2];
    storages[0].value = 1;
    storages[1].value = 2;
    RCShdPtr<MbManager> const manager = makeManager(4);
    MbBuffer first = makeBuffer("first", storages[0], manager);
    MbBuffer second = makeBuffer("second", storages[1], manager);
    MbDualBufferFactory factory(MbStateMachine::getInstance(false).getInitialState(), manager);
    MbBuffer const both = factory.create(first, 0, SIZE, second, 0, SIZE);
    Worker writer("writer", [second] { increment(second); });
    Worker freer("freer", [first]() mutable { first.free(); });
    {
        MbBufferRdGuardImp const guard(both);
        auto const * const values = static_cast<std::int64_t const *>(guard.getMemory());
        HOLDS(values[0] == 1 && (values[1] == 2 || values[1] == 3));
    }
    writer.join();
    freer.join();
}
