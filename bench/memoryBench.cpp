// Cost of memory buffers: a hold on a loaded buffer, loads under memory pressure, and the arena.

#include "resmgt/dynamicAllocation.h"
#include "resmgt/memoryBuffers.h"

#include <benchmark/benchmark.h>
#include <boost/interprocess/managed_external_buffer.hpp>
#include <boost/interprocess/mem_algo/rbtree_best_fit.hpp>
#include <boost/interprocess/sync/mutex_family.hpp>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

using namespace Zv;

ObjPtr<MbUnloadStrategy> newStrategy()
{
    return ObjPtr<MbUnloadStrategy>(new MbUnloadLRU(0));
}

// ---- hold on a loaded buffer

class LoadedBuffer
{
public:
    LoadedBuffer()
        : _manager(new MbHeapManager("bench", 1 << 20, newStrategy())),
          buffer(
              MbBufferSimpleFactory(MbStateMachine::getInstance(false).getInitialState(), _manager)
                  .create("bench", 4096))
    {
        MbBufferRdGuardImp const load(buffer);
    }

private:
    RCShdPtr<MbManager> _manager;

public:
    MbBuffer buffer;
};

void firstHold(benchmark::State &state)
{
    LoadedBuffer loaded;
    for (auto _ : state) {
        MbBufferRdGuardImp const guard(loaded.buffer);
        benchmark::DoNotOptimize(guard.getMemory());
    }
}

void anotherHold(benchmark::State &state)
{
    LoadedBuffer loaded;
    MbBufferRdGuardImp const first(loaded.buffer);
    for (auto _ : state) {
        MbBufferRdGuardImp const guard(loaded.buffer);
        benchmark::DoNotOptimize(guard.getMemory());
    }
}

/// The same with the standard library: the memory is reference-counted, and a lock guards it.
struct SharedMemory
{
    std::shared_mutex lock;
    std::shared_ptr<std::vector<char>> memory = std::make_shared<std::vector<char>>(4096);
};

struct SharedHold
{
    explicit SharedHold(SharedMemory &shared) : guard(shared.lock), memory(shared.memory) {}

    std::shared_lock<std::shared_mutex> guard;
    std::shared_ptr<std::vector<char>> memory;
};

void firstHoldPeer(benchmark::State &state)
{
    SharedMemory shared;
    for (auto _ : state) {
        SharedHold const hold(shared);
        benchmark::DoNotOptimize(hold.memory->data());
    }
}

void anotherHoldPeer(benchmark::State &state)
{
    SharedMemory shared;
    SharedHold const first(shared);
    for (auto _ : state) {
        SharedHold const hold(shared);
        benchmark::DoNotOptimize(hold.memory->data());
    }
}

BENCHMARK(firstHold)->Name("hold/MbBufferRdGuardImp");
BENCHMARK(firstHoldPeer)->Name("hold/std::shared_mutex");
BENCHMARK(anotherHold)->Name("holdAgain/MbBufferRdGuardImp");
BENCHMARK(anotherHoldPeer)->Name("holdAgain/std::shared_mutex");

// ---- pages that do not all fit, read in turn: each read loads a page and evicts another one

constexpr int PAGE = 4096;
constexpr int PAGES = 1024;

class PageProtocol : public MbProtocol
{
public:
    explicit PageProtocol(int page) : _page(page) {}
    void reload(void *memory, std::uint64_t size) override { std::memset(memory, _page, size); }

private:
    int _page;
};

template <class Manager>
class Pages
{
public:
    Pages()
    {
        RCShdPtr<MbManager> const manager(newManager(static_cast<Manager *>(nullptr)));
        MbBufferSimpleFactory factory(MbStateMachine::getInstance(false).getInitialState(),
                                      manager);
        for (int i = 0; i < PAGES; ++i)
            _pages.push_back(factory.create("page", ObjPtr<MbProtocol>(new PageProtocol(i)), PAGE,
                                            MbAlignment(15, 0, 0)));
    }
    char read(int page) const
    {
        MbBufferRdGuardImp const guard(_pages[static_cast<std::size_t>(page)]);
        return *static_cast<char const *>(guard.getMemory());
    }

private:
    static MbManager *newManager(MbHeapManager *)
    {
        return new MbHeapManager("bench", (PAGE + 15) * PAGES / 2, newStrategy());
    }
    static MbManager *newManager(MbArenaManager *)
    {
        return new MbArenaManager(
            "bench",
            ObjPtr<DaArenaPool>(DaArenaPool::create(DaMallocAllocator::create(), PAGE * PAGES / 2)),
            newStrategy());
    }

    std::vector<MbBuffer> _pages;
};

/// Cache with a map and a list under a mutex. A reader holds a page by its reference count, so that
/// the mutex is free during the read.
template <template <class...> class Map>
class PageCache
{
public:
    using Page = std::shared_ptr<std::unique_ptr<char[]>>;

    char read(int page)
    {
        Page const held = get(page);
        return (*held)[0];
    }

private:
    struct Entry
    {
        int number;
        Page page;
    };

    Page get(int page)
    {
        std::lock_guard const guard(_mutex);
        auto const found = _pages.find(page);
        if (found != _pages.end()) {
            _used.splice(_used.end(), _used, found->second);
            return found->second->page;
        }
        while (_pages.size() >= PAGES / 2) {
            _pages.erase(_used.front().number);
            _used.pop_front();
        }
        auto memory = std::make_shared<std::unique_ptr<char[]>>(new char[PAGE]);
        std::memset(memory->get(), page, PAGE);
        _used.push_back({page, memory});
        _pages.emplace(page, std::prev(_used.end()));
        return memory;
    }

    std::mutex _mutex;
    std::list<Entry> _used;
    Map<int, typename std::list<Entry>::iterator> _pages;
};

template <class Cache>
void loadUnderPressure(benchmark::State &state)
{
    Cache cache;
    // The pages are read in a circle, so that the next page was always evicted before.
    int page = 0;
    for (; page < PAGES; ++page)
        cache.read(page);
    for (auto _ : state) {
        benchmark::DoNotOptimize(cache.read(page % PAGES));
        ++page;
    }
}

template <class... Arguments>
using Tree = std::map<Arguments...>;
template <class... Arguments>
using Hash = std::unordered_map<Arguments...>;

BENCHMARK(loadUnderPressure<Pages<MbHeapManager>>)->Name("load/MbHeapManager");
BENCHMARK(loadUnderPressure<Pages<MbArenaManager>>)->Name("load/MbArenaManager");
BENCHMARK(loadUnderPressure<PageCache<Tree>>)->Name("load/std::map");
BENCHMARK(loadUnderPressure<PageCache<Hash>>)->Name("load/std::unordered_map");

// ---- arena: a block of any size is freed and another one allocated, while many are allocated

constexpr std::size_t ARENA = std::size_t{1} << 28;

class Arena
{
public:
    void *allocate(std::size_t size) { return _pool->allocate(size); }
    void deallocate(void *memory) { _pool->deallocate(memory); }

private:
    ObjPtr<DaArenaPool> _pool{DaArenaPool::create(DaMemoryMapAllocator::create("bench"), ARENA)};
};

class Heap
{
public:
    void *allocate(std::size_t size) { return std::malloc(size); }
    void deallocate(void *memory) { std::free(memory); }
};

/// Boost's allocator, which, like the arena, does not lock.
class BestFit
{
    using Algorithm = boost::interprocess::rbtree_best_fit<boost::interprocess::null_mutex_family>;

public:
    BestFit() : _memory(static_cast<char *>(std::aligned_alloc(4096, ARENA)))
    {
        _arena = new (_memory) Algorithm(ARENA, 0);
    }
    ~BestFit()
    {
        _arena->~Algorithm();
        std::free(_memory);
    }
    void *allocate(std::size_t size) { return _arena->allocate(size); }
    void deallocate(void *memory) { _arena->deallocate(memory); }

private:
    char *_memory;
    Algorithm *_arena;
};

/// Blocks of random sizes, with the free memory as fragmented as after a long run.
template <class Allocator>
class Blocks
{
public:
    explicit Blocks(std::int64_t nbBlocks) : _blocks(static_cast<std::size_t>(nbBlocks))
    {
        for (void *&block : _blocks)
            block = _allocator.allocate(pickSize());
        for (std::size_t i = 0; i < 20 * _blocks.size(); ++i)
            exchange();
    }
    ~Blocks()
    {
        for (void * const block : _blocks)
            _allocator.deallocate(block);
    }

    /// Frees any block, and allocates another one. `allocate( function )` calls the function, which
    /// is the allocation itself.
    template <class Allocate>
    void exchange(Allocate allocate)
    {
        void *&block = _blocks[_random() % _blocks.size()];
        _allocator.deallocate(block);
        std::size_t const size = pickSize();
        allocate([&] { block = _allocator.allocate(size); });
    }
    void exchange()
    {
        exchange([](auto const &allocation) { allocation(); });
    }

private:
    std::size_t pickSize() { return 16 + _random() % 4096; }

    Allocator _allocator;
    std::mt19937 _random{1};
    std::vector<void *> _blocks;
};

template <class Allocator>
void exchangeBlocks(benchmark::State &state)
{
    Blocks<Allocator> blocks(state.range(0));
    for (auto _ : state)
        blocks.exchange();
}

/// Times each allocation alone. Both sides include a reading of the clock.
template <class Allocator>
void slowAllocations(benchmark::State &state)
{
    using Clock = std::chrono::steady_clock;
    constexpr int NB_ALLOCATIONS = 50000;
    std::vector<double> costs; // in microseconds
    costs.reserve(NB_ALLOCATIONS);
    Blocks<Allocator> blocks(state.range(0));
    for (auto _ : state) {
        for (int i = 0; i < NB_ALLOCATIONS; ++i)
            blocks.exchange([&](auto const &allocation) {
                Clock::time_point const start = Clock::now();
                allocation();
                costs.push_back(
                    std::chrono::duration<double, std::micro>(Clock::now() - start).count());
            });
    }
    auto const p999 = costs.begin() + NB_ALLOCATIONS / 1000 * 999;
    std::nth_element(costs.begin(), p999, costs.end());
    state.counters["p999"] = *p999;
}

BENCHMARK(exchangeBlocks<Arena>)->Name("arena/DaArenaPool")->RangeMultiplier(10)->Range(10, 100000);
BENCHMARK(exchangeBlocks<Heap>)->Name("arena/malloc")->RangeMultiplier(10)->Range(10, 100000);
BENCHMARK(exchangeBlocks<BestFit>)
    ->Name("arena/rbtree_best_fit")
    ->RangeMultiplier(10)
    ->Range(10, 100000);
BENCHMARK(slowAllocations<Arena>)
    ->Name("slow/DaArenaPool")
    ->RangeMultiplier(10)
    ->Range(10, 100000)
    ->Iterations(1);
BENCHMARK(slowAllocations<Heap>)
    ->Name("slow/malloc")
    ->RangeMultiplier(10)
    ->Range(10, 100000)
    ->Iterations(1);

} // namespace
