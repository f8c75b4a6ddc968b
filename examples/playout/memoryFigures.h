// Statistics of the pages of a show.
#pragma once

#include "journal.h"

#include <resmgt/locks.h>

#include <zvbase/zvbase.h>

#include <algorithm>
#include <cstdint>

/// Counts loads, unloads and bytes of pages. Thread-safe.
class MemoryFigures
{
public:
    struct Figures
    {
        long loads = 0;
        long reloads = 0;       // of pages that were unloaded
        long unloads = 0;       // because another page needed the memory
        long visits = 0;        // pages that the player has entered
        long hits = 0;          // visits of pages that a prefetch had loaded by then
        std::int64_t bytes = 0; // in use
        std::int64_t peak = 0;  // largest value of `bytes`
    };

    /// Tells a journal, which may be null, of each change. Must be called before the first one.
    void setJournal(Journal *journal) { _journal = journal; }
    Journal *getJournal() const { return _journal; }

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
        note(false);
    }
    void given(std::uint64_t bytes, bool isUnload)
    {
        Zv::LkGuard<Zv::LkLock const> const guard(_lock);
        _figures.unloads += isUnload;
        _figures.bytes -= static_cast<std::int64_t>(bytes);
        note(isUnload);
    }

private:
    void note(bool isUnload)
    {
        if (!_journal)
            return;
        double const now = Zv::Sleeper::getInstance().getTime();
        _journal->use(_figures.bytes, now);
        if (isUnload)
            _journal->unload(now);
    }

    Journal *_journal = nullptr;
    Zv::LkLock mutable _lock{"MemoryFigures"};
    Figures _figures;
};
