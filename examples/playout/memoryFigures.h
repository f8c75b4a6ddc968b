// What became of the pages of a show.
#pragma once

#include <resmgt/locks.h>

#include <algorithm>
#include <cstdint>

/// Counts. Any thread.
class MemoryFigures
{
public:
    struct Figures
    {
        long loads = 0;
        long reloads = 0; // of pages that were unloaded
        long unloads = 0; // for want of memory
        long visits = 0;  // pages that the player has come to
        long hits = 0;    // of them, those that a prefetch had loaded by then
        std::int64_t bytes = 0;
        std::int64_t peak = 0; // of the bytes
    };

    Figures get() const
    {
        Zv::LkGuard<Zv::LkLock const> const guard(_lock);
        return _figures;
    }
    void visited(bool isHit)
    {
        Zv::LkGuard<Zv::LkLock const> const guard(_lock);
        ++_figures.visits;
        _figures.hits += isHit;
    }
    void taken(std::uint64_t bytes, bool isReload)
    {
        Zv::LkGuard<Zv::LkLock const> const guard(_lock);
        ++(isReload ? _figures.reloads : _figures.loads);
        _figures.bytes += static_cast<std::int64_t>(bytes);
        _figures.peak = std::max(_figures.peak, _figures.bytes);
    }
    void given(std::uint64_t bytes, bool isUnload)
    {
        Zv::LkGuard<Zv::LkLock const> const guard(_lock);
        _figures.unloads += isUnload;
        _figures.bytes -= static_cast<std::int64_t>(bytes);
    }

private:
    Zv::LkLock mutable _lock{"MemoryFigures"};
    Figures _figures;
};
