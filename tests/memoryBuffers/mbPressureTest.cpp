// Stress test: many threads, many buffers, little memory, and protocols that are slow or fail.

#include "recording.h"
#include "resmgt/dynamicAllocation.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <random>

namespace ZvTest {
namespace {

/// Completes asynchronous operations on a thread of its own. Some of them fail.
class Store
{
public:
    ~Store() { stop(); }
    void end(LkAsyncHandle *handle, std::function<bool()> work)
    {
        std::lock_guard const guard(_mutex);
        _jobs.emplace_back(handle, std::move(work));
        _filled.notify_one();
    }
    /// Returns true if this call must fail.
    bool fails()
    {
        if (!_isFailing)
            return false;
        std::lock_guard const guard(_mutex);
        return _random() % 10 == 0;
    }
    void setFailing(bool isFailing) { _isFailing = isFailing; }
    void stop()
    {
        {
            std::lock_guard const guard(_mutex);
            _isStopped = true;
        }
        _filled.notify_one();
        if (_thread.joinable())
            _thread.join();
    }

private:
    void run()
    {
        std::unique_lock guard(_mutex);
        for (;;) {
            _filled.wait(guard, [this] { return _isStopped || !_jobs.empty(); });
            if (_jobs.empty())
                return;
            auto const [handle, work] = std::move(_jobs.front());
            _jobs.pop_front();
            guard.unlock();
            if (work())
                handle->performSucceeded();
            else
                handle->performFailed();
            guard.lock();
        }
    }

    std::mutex _mutex;
    std::condition_variable _filled;
    std::deque<std::pair<LkAsyncHandle *, std::function<bool()>>> _jobs;
    std::mt19937 _random{1};
    std::atomic<bool> _isFailing = true;
    bool _isStopped = false;
    std::thread _thread{[this] { run(); }};
};

/// Every byte of a buffer has the same value, which counts the writers. The file outlasts the
/// buffer.
struct File
{
    std::atomic<int> value = 0;
    std::atomic<int> nbWrites = 0;
};

char valueOf(void const *memory, std::uint64_t size)
{
    char const * const bytes = static_cast<char const *>(memory);
    for (std::uint64_t i = 1; i < size; ++i)
        EXPECT_EQ(bytes[0], bytes[i]);
    return bytes[0];
}

class FileProtocol : public MbProtocol
{
public:
    FileProtocol(Store &store, File &file) : _store(store), _file(file) {}

    void reload(void *memory, std::uint64_t size) override
    {
        beSlowAndMayFail("reload");
        read(memory, size);
    }
    void asyncReload(void *memory, std::uint64_t size, LkAsyncHandle *handle) override
    {
        _store.end(handle, [this, memory, size] {
            if (_store.fails())
                return false;
            read(memory, size);
            return true;
        });
    }
    void unload(void *memory, std::uint64_t size) override
    {
        beSlowAndMayFail("unload");
        write(memory, size);
    }
    void asyncSync(void *memory, std::uint64_t size, LkAsyncHandle *handle) override
    {
        _store.end(handle, [this, memory, size] {
            if (_store.fails())
                return false;
            write(memory, size);
            return true;
        });
    }
    void free(void *memory, std::uint64_t size) override { write(memory, size); }

private:
    void beSlowAndMayFail(char const *what)
    {
        for (int i = 0; i < 3; ++i)
            std::this_thread::yield();
        if (_store.fails())
            throw Failure(what);
    }
    void read(void *memory, std::uint64_t size) { std::memset(memory, _file.value, size); }
    void write(void const *memory, std::uint64_t size) { _file.value = valueOf(memory, size); }

    Store &_store;
    File &_file;
};

class Pressure
{
public:
    static constexpr int THREADS = 6;
    static constexpr int BUFFERS = 24;
    static constexpr int LARGEST = 1024;

    explicit Pressure(RCShdPtr<MbPoolManager> const &manager) : _manager(manager)
    {
        for (int i = 0; i < BUFFERS; ++i)
            _buffers.push_back(make(i));
    }
    ~Pressure()
    {
        _store.setFailing(false);
        _buffers.clear();
    }

    void run(int nbSteps)
    {
        std::atomic<int> nbRunning = THREADS;
        std::vector<std::thread> threads;
        for (int i = 0; i < THREADS; ++i)
            threads.emplace_back([&, i] {
                std::mt19937 random(static_cast<unsigned>(i));
                for (int step = 0; step < nbSteps; ++step)
                    doSomething(random);
                --nbRunning;
            });
        // A thread waits only if there is no buffer to evict.
        while (nbRunning != 0) {
            EXPECT_TRUE(MbManagerProbe::isFair(*_manager));
            std::this_thread::yield();
        }
        for (std::thread &thread : threads)
            thread.join();
        EXPECT_EQ(MbManagerProbe::waiters(*_manager), 0);
    }
    /// Asserts that no write is lost.
    void check()
    {
        _store.setFailing(false);
        for (int i = 0; i < BUFFERS; ++i) {
            MbBuffer const &buffer = _buffers[static_cast<std::size_t>(i)];
            MbBufferRdGuardImp const guard(buffer);
            EXPECT_EQ(valueOf(guard.getMemory(), static_cast<std::uint64_t>(buffer.getSize())),
                      static_cast<char>(_files[i].nbWrites));
        }
    }
    int getNbFailures() const { return _nbFailures; }

private:
    MbBuffer make(int file)
    {
        return MbBufferSimpleFactory(initialState(), _manager)
            .create(std::to_string(file).c_str(), makeObj<FileProtocol>(_store, _files[file]),
                    1 + file * 97 % LARGEST, MbAlignment(file % 2 == 0 ? 63 : 0, 0, 0));
    }
    void doSomething(std::mt19937 &random)
    {
        int const which = static_cast<int>(random() % BUFFERS);
        MbBuffer buffer = _buffers[static_cast<std::size_t>(which)];
        auto const size = static_cast<std::uint64_t>(buffer.getSize());
        try {
            switch (random() % 9) {
            case 0:
            case 1:
            case 2: {
                MbBufferRdGuardImp const guard(buffer);
                MbBufferRdGuardImp const copy(guard);
                valueOf(copy.getMemory(), size);
                break;
            }
            case 3:
            case 4: {
                MbBufferWrGuardImp const guard(buffer);
                std::memset(guard.getMemory(), valueOf(guard.getMemory(), size) + 1, size);
                ++_files[which].nbWrites;
                break;
            }
            case 5:
                buffer.prefetch();
                break;
            case 6:
                if (random() % 2 == 0)
                    buffer.sync();
                else
                    buffer.asyncSync();
                break;
            case 7:
                buffer.free();
                break;
            case 8:
                useShortly();
                break;
            }
        } catch (Failure const &) {
            ++_nbFailures;
        }
    }
    /// A buffer that ends while another thread may have selected it.
    void useShortly()
    {
        MbBuffer const buffer =
            MbBufferSimpleFactory(initialState(), _manager).create("short", LARGEST / 2);
        MbBufferRdGuardImp const guard(buffer);
    }

    RCShdPtr<MbPoolManager> _manager;
    Store _store;
    File _files[BUFFERS];
    std::vector<MbBuffer> _buffers;
    std::atomic<int> _nbFailures = 0;
};

/// The budgets have room for a few of the buffers, down to the largest one alone.
constexpr std::uint64_t BUDGETS[] = {Pressure::LARGEST + 63, 3 * Pressure::LARGEST,
                                     6 * Pressure::LARGEST};
constexpr int STEPS = 300;

template <class Strategy>
void press(std::uint64_t budget)
{
    SCOPED_TRACE(budget);
    RCShdPtr<MbHeapManager> const manager(new MbHeapManager("heap", budget, makeObj<Strategy>(0)));
    {
        Pressure pressure(manager);
        pressure.run(STEPS);
        EXPECT_LE(manager->getAllocated(), budget);
        pressure.check();
        EXPECT_NE(pressure.getNbFailures(), 0);
    }
    EXPECT_EQ(manager->getAllocated(), 0u);
}

TEST(MbPressure, OfTheHeapWithTheLeastRecentlyUsedVictim)
{
    for (std::uint64_t const budget : BUDGETS)
        press<MbUnloadLRU>(budget);
}

TEST(MbPressure, OfTheHeapWithAnyVictim)
{
    for (std::uint64_t const budget : BUDGETS)
        press<MbUnloadRandom>(budget);
}

TEST(MbPressure, OfAnArena)
{
    for (std::uint64_t const budget : BUDGETS) {
        SCOPED_TRACE(budget);
        RCShdPtr<MbPoolManager> manager(new MbArenaManager(
            "arena",
            ObjPtr<DaArenaPool>(DaArenaPool::create(DaMemoryMapAllocator::create("pages"), budget)),
            makeObj<MbUnloadLRU>(0)));
        {
            Pressure pressure(manager);
            pressure.run(STEPS);
            pressure.check();
            EXPECT_NE(pressure.getNbFailures(), 0);
        }
        // The destructor of the arena asserts that all blocks were freed.
        EXPECT_NO_THROW(manager = RCShdPtr<MbPoolManager>());
    }
}

} // namespace
} // namespace ZvTest
