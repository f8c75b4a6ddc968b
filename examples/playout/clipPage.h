// A page of a clip.
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

/// Returns the indices of the pages that have lost their memory since the last call. Any thread.
class UnloadedPages
{
public:
    void add(std::int64_t index)
    {
        Zv::LkGuard<Zv::LkLock const> const guard(_lock);
        _indices.push_back(index);
    }
    std::vector<std::int64_t> take()
    {
        Zv::LkGuard<Zv::LkLock const> const guard(_lock);
        return std::exchange(_indices, {});
    }

private:
    Zv::LkLock mutable _lock{"UnloadedPages"};
    std::vector<std::int64_t> _indices;
};

/// What a buffer does with a page. It fills it on the thread that wants it, or, ahead of time, on a thread of the
/// loader's. There is nothing to write back: the page is still in its file.
class ClipPage : public Zv::MbProtocol
{
public:
    /// Fills the memory. Any thread; throws what keeps it from that.
    using Fill = std::function<void(void *memory, std::uint64_t size)>;

    struct Place
    {
        UnloadedPages &unloaded; // is told when the page has lost its memory
        std::int64_t index;      // as what
        bool wasLoaded;          // an object before this one had the page in memory
    };

    /// Loader, figures and `place.unloaded` outlive the page.
    ClipPage(Fill fill, Place const &place, TaskPool &loader, MemoryFigures &figures);

    /// Whether it was loaded, or begun to be loaded, since it was unloaded last.
    bool hasMemory() const { return _hasMemory; }

    /// Whether the last load was ahead of time, and over when this is asked; true once for each.
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
