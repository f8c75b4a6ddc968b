#include "bufferedClip.h"

#include <algorithm>
#include <utility>

using namespace Zv;

BufferedClip::BufferedClip(std::unique_ptr<Clip> source, ClipMemory &memory)
    : _memory(memory), _lock("BufferedClip"), _source(std::move(source))
{
    int const frameBytes = getFormat().channels * static_cast<int>(sizeof(double));
    _framesPerPage = std::max(_memory.getPageBytes() / frameBytes, 1);
}

// The destructor of a buffer may throw, and that of a container must not.
BufferedClip::~BufferedClip() noexcept(false)
{
    while (!_pages.empty())
        removePage(_pages.begin()->first);
}

BufferedClip::Page &BufferedClip::getPage(std::int64_t index)
{
    if (auto const known = _pages.find(index); known != _pages.end())
        return known->second;
    auto const position = index * _framesPerPage;
    auto const frames =
        static_cast<int>(std::min<std::int64_t>(getFormat().frames - position, _framesPerPage));
    bool const wasLoaded = index < static_cast<std::int64_t>(_wereLoaded.size()) &&
                           _wereLoaded[static_cast<std::size_t>(index)];
    Page page;
    page.buffer = _memory.createPage(
        [=, this](void *memory, std::uint64_t) {
            fill(static_cast<double *>(memory), position, frames);
        },
        frames * getFormat().channels * static_cast<int>(sizeof(double)),
        {_unloaded, index, wasLoaded}, page.protocol);
    return _pages.emplace(index, std::move(page)).first->second;
}

void BufferedClip::removePage(std::int64_t index)
{
    auto const page = _pages.find(index);
    Page const last = std::move(page->second);
    _pages.erase(page);
}

void BufferedClip::removeUnloaded()
{
    for (std::int64_t const index : _unloaded.take()) {
        auto const page = _pages.find(index);
        if (page == _pages.end() || page->second.protocol->hasMemory())
            continue;
        auto const place = static_cast<std::size_t>(index);
        _wereLoaded.resize(std::max(_wereLoaded.size(), place + 1));
        _wereLoaded[place] = true;
        removePage(index);
    }
}

void BufferedClip::fill(double *samples, std::int64_t position, int frames)
{
    LkGuard<LkMutex const> const guard(_lock);
    while (frames > 0) {
        auto const piece = _source->read(position, frames);
        samples = std::copy(piece.begin(), piece.end(), samples);
        auto const count = static_cast<int>(piece.size()) / getFormat().channels;
        position += count;
        frames -= count;
    }
}

std::vector<double> BufferedClip::read(std::int64_t position, int frames)
{
    std::vector<double> samples;
    auto const end = std::min(position + frames, getFormat().frames);
    while (position < end) {
        auto const index = position / _framesPerPage;
        auto const next = std::min((position / _framesPerPage + 1) * _framesPerPage, end);
        bool const isNew = index != std::exchange(_current, index);
        if (isNew)
            _memory.getFigures().visited(getPage(index).protocol->takePrefetched());
        append(samples, index, position, next);
        if (isNew) {
            loadBehind(index);
            removeUnloaded();
        }
        position = next;
    }
    return samples;
}

void BufferedClip::append(std::vector<double> &samples, std::int64_t index, std::int64_t position,
                          std::int64_t end)
{
    MbBufferRdGuardImp const guard(getPage(index).buffer);
    auto const first = index * _framesPerPage;
    auto const page = static_cast<double const *>(guard.getMemory());
    auto const channels = getFormat().channels;
    samples.insert(samples.end(), page + (position - first) * channels,
                   page + (end - first) * channels);
}

/// Loads the pages behind `index` ahead of time. The caller must hold no guard, because this may
/// wait for memory.
void BufferedClip::loadBehind(std::int64_t index)
{
    for (int i = 0; i < _memory.getAhead(); ++i)
        if (++index * _framesPerPage < getFormat().frames)
            getPage(index).buffer.prefetch();
}
