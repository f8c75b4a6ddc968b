// Memory of the clips that are played.
#pragma once

#include "clipPage.h"
#include "memoryFigures.h"
#include "show.h"
#include "taskPool.h"

#include <resmgt/memoryBuffers.h>
#include <resmgt/threads.h>

/// The buffer manager that a show asks for, and the thread that loads pages ahead of time. It must
/// outlive its buffers.
class ClipMemory
{
public:
    /// `show` and `figures` must outlive the object. Throws what the library throws if there is no
    /// such memory.
    ClipMemory(ShowMemory const &show, MemoryFigures &figures);

    /// Returns a buffer of that many bytes, aligned to 8. `page` receives its protocol, which the
    /// buffer owns.
    Zv::MbBuffer createPage(ClipPage::Fill fill, int bytes, ClipPage::Place place, ClipPage *&page);
    int getPageBytes() const { return static_cast<int>(_show.page); }
    /// Returns the number of pages to load ahead: what the show asks for, but no more than fit into
    /// the budget beside the page that is being played.
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
