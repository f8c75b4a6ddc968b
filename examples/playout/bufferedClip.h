// Clip that is read through memory buffers.
#pragma once

#include "clip.h"
#include "clipMemory.h"

#include <resmgt/locks.h>
#include <resmgt/memoryBuffers.h>

#include <memory>
#include <unordered_map>
#include <vector>

/// Divides another clip into pages, each in a buffer of its own. A page is loaded ahead of time, or
/// by the guard that reads it. It is unloaded when another page needs its memory. The object of a
/// page is made when it is first needed and removed after its memory, so that a long clip takes no
/// more memory than a short one.
class BufferedClip : public Clip
{
public:
    /// The length of `source` must be known. `memory` must outlive the clip.
    BufferedClip(std::unique_ptr<Clip> source, ClipMemory &memory);
    ~BufferedClip() noexcept(false) override;

    AudioFormat const &getFormat() const override { return _source->getFormat(); }
    std::vector<double> read(std::int64_t position, int frames) override;

private:
    struct Page
    {
        Zv::MbBuffer buffer;
        ClipPage *protocol; // owned by the buffer
    };

    Page &getPage(std::int64_t index);
    void removePage(std::int64_t index);
    void removeUnloaded();
    void fill(double *samples, std::int64_t position, int frames);
    void append(std::vector<double> &samples, std::int64_t index, std::int64_t position,
                std::int64_t end);
    void loadBehind(std::int64_t index);

    ClipMemory &_memory;
    Zv::LkMutex _lock; // for reading the source
    std::unique_ptr<Clip> _source;
    int _framesPerPage;
    // By index: the pages that have memory, and a few more.
    std::unordered_map<std::int64_t, Page> _pages;
    std::vector<bool> _wereLoaded; // by index: whether the page was unloaded before
    std::int64_t _current = NONE;  // index of the page that was read last
    UnloadedPages _unloaded;

    static constexpr std::int64_t NONE = -1;
};
