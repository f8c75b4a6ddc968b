// Page of a clip in a memory buffer.
#pragma once

#include "memoryFigures.h"
#include "taskPool.h"

#include <resmgt/locks.h>
#include <resmgt/memoryBuffers.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

/// Collects the indices of pages that have lost their memory. Thread-safe.
class UnloadedPages
{
public:
    void add(std::int64_t index)
    {
        Zv::LkGuard<Zv::LkLock const> const guard(_lock);
        _indices.push_back(index);
    }
    /// Returns the indices that were added since the last call.
    std::vector<std::int64_t> take()
    {
        Zv::LkGuard<Zv::LkLock const> const guard(_lock);
        return std::exchange(_indices, {});
    }

private:
    Zv::LkLock mutable _lock{"UnloadedPages"};
    std::vector<std::int64_t> _indices;
};

/// Loads a page into its buffer, on the thread that wants it, or ahead of time on a thread of the
/// loader. Nothing is written back, because the page is still in its file.
class ClipPage : public Zv::MbProtocol
{
public:
    /// Fills the memory. Called on any thread. May throw.
    using Fill = std::function<void(void *memory, std::uint64_t size)>;

    struct Place
    {
        UnloadedPages &unloaded; // gets `index` when the page loses its memory
        std::int64_t index;
        bool wasLoaded; // by an earlier object of this page
    };

    /// `loader`, `figures` and `place.unloaded` must outlive the page.
    ClipPage(Fill fill, Place const &place, TaskPool &loader, MemoryFigures &figures);

    /// Returns whether a load has begun since the page was last unloaded.
    bool hasMemory() const { return _hasMemory; }

    /// Returns whether a load ahead of time has succeeded and the page was not unloaded since.
    /// Returns true once for each such load.
    bool takePrefetched() { return _isPrefetched.exchange(false); }

    void load(void *memory, std::uint64_t size) override { fill(memory, size, false); }
    void reload(void *memory, std::uint64_t size) override { fill(memory, size, true); }
    void asyncLoad(void *memory, std::uint64_t size, Zv::LkAsyncHandle *handle) override;
    void asyncReload(void *memory, std::uint64_t size, Zv::LkAsyncHandle *handle) override;
    void unload(void *memory, std::uint64_t size) override;
    void free(void *memory, std::uint64_t size) override;

private:
    void fill(void *memory, std::uint64_t size, bool isReload);
    void fillLater(void *memory, std::uint64_t size, bool isReload, Zv::LkAsyncHandle *handle);

    Fill _fill;
    Place _place;
    TaskPool &_loader;
    MemoryFigures &_figures;
    std::atomic<bool> _hasMemory = false;
    std::atomic<bool> _isPrefetched = false;
};
