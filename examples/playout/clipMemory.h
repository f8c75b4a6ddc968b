// Where clips live while they are played.
#pragma once

#include "clipPage.h"
#include "memoryFigures.h"
#include "show.h"
#include "taskPool.h"

#include <resmgt/memoryBuffers.h>
#include <resmgt/threads.h>

/// The buffer manager that a show asks for, and the thread that loads ahead. Buffers end before it.
class ClipMemory
{
public:
    /// Both outlive it. Throws what keeps it from having the memory.
    ClipMemory(ShowMemory const &show, MemoryFigures &figures);

    /// A page of so many bytes, on a multiple of 8. `page` receives its protocol, which is the buffer's.
    Zv::MbBuffer createPage(ClipPage::Fill fill, int bytes, ClipPage::Place place, ClipPage *&page);
    int getPageBytes() const { return static_cast<int>(_show.page); }
    /// How many pages there is room for beside the one that is being played, and no more than the show wants.
    int getAhead() const;
    MemoryFigures &getFigures() const { return _figures; }

private:
    static Zv::RCShdPtr<Zv::MbManager> makeManager(ShowMemory const &show);

    ShowMemory const &_show;
    MemoryFigures &_figures;
    TaskPool _loader;
    Zv::PriorityRelation _priority;
    Zv::MbBufferSimpleFactory _factory;
};
