// A clip that is read through memory.
#pragma once

#include "clip.h"
#include "clipMemory.h"

#include <resmgt/locks.h>
#include <resmgt/memoryBuffers.h>

#include <memory>
#include <vector>

/// Another clip in pages, each in a buffer of its own that has memory only when somebody needs it: a page is loaded by
/// the guard that reads it, unless it has been ahead of time, and goes when another needs its memory.
class BufferedClip : public Clip
{
public:
    /// The source's length is known. The memory outlives the clip.
    BufferedClip(std::unique_ptr<Clip> source, ClipMemory &memory);

    AudioFormat const &getFormat() const override { return _source->getFormat(); }
    std::vector<double> read(std::int64_t position, int frames) override;

private:
    struct Page
    {
        Zv::MbBuffer buffer;
        ClipPage *protocol; // the buffer's
    };

    void addPage(int frames);
    void fill(double *samples, std::int64_t position, int frames);
    void append(std::vector<double> &samples, std::size_t index, std::int64_t position,
                std::int64_t end) const;
    void loadBehind(std::size_t index);

    ClipMemory &_memory;
    Zv::LkMutex _lock; // one thread at a time reads the source
    std::unique_ptr<Clip> _source;
    int _framesPerPage;
    std::vector<Page> _pages;
    std::size_t _current = NONE; // of the pages

    static constexpr std::size_t NONE = static_cast<std::size_t>(-1);
};
