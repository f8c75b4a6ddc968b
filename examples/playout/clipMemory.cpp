#include "clipMemory.h"

#include <resmgt/dynamicAllocation.h>

#include <algorithm>

using namespace Zv;

namespace {

ObjPtrRet<MbUnloadStrategy> makeStrategy(ShowMemory const &show)
{
    int const nbPages = static_cast<int>(std::min<std::int64_t>(show.budget / show.page, 100000));
    if (show.strategy == "random")
        return makeObj<MbUnloadRandom>(nbPages);
    return makeObj<MbUnloadLRU>(nbPages);
}

} // namespace

ClipMemory::ClipMemory(ShowMemory const &show, MemoryFigures &figures)
    : _show(show),
      _figures(figures),
      _loader("page loader", 1),
      // The loader has a high priority, because a page that is late delays a device.
      _priority("page loader", RtPriorities::getInstance().getRealTimePriority(),
                PriorityRelation::LESS_EQUAL, _loader),
      _factory(MbStateMachine::getInstance(false).getInitialState(), makeManager(show))
{}

MbBuffer ClipMemory::createPage(ClipPage::Fill fill, int bytes, ClipPage::Place place,
                                ClipPage *&page)
{
    page = new ClipPage(std::move(fill), place, _loader, _figures);
    return _factory.create("page", ObjPtr<MbProtocol>(page), bytes,
                           MbAlignment(alignof(double) - 1, 0, 0));
}

int ClipMemory::getAhead() const
{
    auto const pageWithAlignment = _show.page + static_cast<std::int64_t>(alignof(double)) - 1;
    return static_cast<int>(
        std::clamp<std::int64_t>(_show.budget / pageWithAlignment - 1, 0, _show.ahead));
}

RCShdPtr<MbManager> ClipMemory::makeManager(ShowMemory const &show)
{
    auto const budget = static_cast<std::uint64_t>(show.budget);
    if (show.manager == "heap")
        return RCShdPtr<MbManager>(new MbHeapManager("clips", budget, makeStrategy(show)));
    ObjPtr<DaArenaPool> pool(DaArenaPool::create(DaMemoryMapAllocator::create("clips"), budget));
    return RCShdPtr<MbManager>(new MbArenaManager("clips", pool, makeStrategy(show)));
}
