// A page of a clip.
#pragma once

#include "memoryFigures.h"
#include "taskPool.h"

#include <resmgt/memoryBuffers.h>

#include <atomic>
#include <functional>

/// What a buffer does with a page. It fills it on the thread that wants it, or, ahead of time, on a thread of the
/// loader's. There is nothing to write back: the page is still in its file.
class ClipPage : public Zv::MbProtocol
{
public:
    /// Fills the memory. Any thread; throws what keeps it from that.
    using Fill = std::function<void(void *memory, std::uint64_t size)>;

    /// Loader and figures outlive the page.
    ClipPage(Fill fill, TaskPool &loader, MemoryFigures &figures);

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
    TaskPool &_loader;
    MemoryFigures &_figures;
    std::atomic<bool> _isPrefetched = false;
};
