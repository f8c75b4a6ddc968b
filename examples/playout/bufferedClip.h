// A clip that is read through memory.
#pragma once

#include "clip.h"
#include "clipMemory.h"

#include <resmgt/locks.h>
#include <resmgt/memoryBuffers.h>

#include <memory>
#include <unordered_map>
#include <vector>

/// Another clip in pages, each in a buffer of its own that has memory only when somebody needs it: a page is loaded by
/// the guard that reads it, unless it has been ahead of time, and goes when another needs its memory. A page is made
/// when it is needed for the first time, and its object goes after its memory, so that a long clip takes no more than a
/// short one.
class BufferedClip : public Clip
{
public:
    /// The source's length is known. The memory outlives the clip.
    BufferedClip(std::unique_ptr<Clip> source, ClipMemory &memory);
    ~BufferedClip() noexcept(false) override;

    AudioFormat const &getFormat() const override { return _source->getFormat(); }
    std::vector<double> read(std::int64_t position, int frames) override;

private:
    struct Page
    {
        Zv::MbBuffer buffer;
        ClipPage *protocol; // the buffer's
    };

    Page &getPage(std::int64_t index);
    void removePage(std::int64_t index);
    void removeUnloaded();
    void fill(double *samples, std::int64_t position, int frames);
    void append(std::vector<double> &samples, std::int64_t index, std::int64_t position,
                std::int64_t end);
    void loadBehind(std::int64_t index);

    ClipMemory &_memory;
    Zv::LkMutex _lock; // one thread at a time reads the source
    std::unique_ptr<Clip> _source;
    int _framesPerPage;
    std::unordered_map<std::int64_t, Page>
        _pages;                    // by index: those that have memory, and a few more
    std::vector<bool> _wereLoaded; // the pages that were unloaded
    std::int64_t _current = NONE;  // of the pages
    UnloadedPages _unloaded;

    static constexpr std::int64_t NONE = -1;
};
