#include "clipPage.h"

using namespace Zv;

ClipPage::ClipPage(Fill fill, Place const &place, TaskPool &loader, MemoryFigures &figures)
    : _fill(std::move(fill)), _place(place), _loader(loader), _figures(figures)
{}

void ClipPage::asyncLoad(void *memory, std::uint64_t size, LkAsyncHandle *handle)
{
    fillLater(memory, size, false, handle);
}

void ClipPage::asyncReload(void *memory, std::uint64_t size, LkAsyncHandle *handle)
{
    fillLater(memory, size, true, handle);
}

void ClipPage::unload(void *, std::uint64_t size)
{
    _place.unloaded.add(_place.index);
    _isPrefetched = false;
    _hasMemory = false;
    _figures.given(size, true);
}

void ClipPage::free(void *, std::uint64_t size)
{
    _figures.given(size, false);
}

void ClipPage::fill(void *memory, std::uint64_t size, bool isReload)
{
    _hasMemory = true;
    _figures.taken(size, isReload || _place.wasLoaded);
    Journal * const journal = _figures.getJournal();
    double const begin = journal ? Sleeper::getInstance().getTime() : 0;
    try {
        _fill(memory, size);
    } catch (...) {
        _figures.given(size, false);
        throw;
    }
    if (journal)
        journal->load(begin, Sleeper::getInstance().getTime());
}

void ClipPage::fillLater(void *memory, std::uint64_t size, bool isReload, LkAsyncHandle *handle)
{
    _hasMemory = true;
    _loader.add([=, this] {
        bool isFilled = true;
        try {
            fill(memory, size, isReload);
        } catch (std::exception const &) {
            isFilled = false; // the next guard on the page tries again, and gets the exception
        }
        _isPrefetched = isFilled;
        isFilled ? handle->performSucceeded() : handle->performFailed();
    });
}
