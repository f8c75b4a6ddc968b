#include "bufferedClip.h"

#include <algorithm>
#include <utility>

using namespace Zv;

BufferedClip::BufferedClip(std::unique_ptr<Clip> source, ClipMemory &memory)
    : _memory(memory), _lock("BufferedClip"), _source(std::move(source))
{
    int const frameBytes = getFormat().channels * static_cast<int>(sizeof(double));
    _framesPerPage = std::max(_memory.getPageBytes() / frameBytes, 1);
    for (auto rest = getFormat().frames; rest > 0; rest -= _framesPerPage)
        addPage(static_cast<int>(std::min<std::int64_t>(rest, _framesPerPage)));
}

void BufferedClip::addPage(int frames)
{
    auto const position = static_cast<std::int64_t>(_pages.size()) * _framesPerPage;
    Page &page = _pages.emplace_back();
    page.buffer = _memory.createPage(
        [=, this](void *memory, std::uint64_t) {
            fill(static_cast<double *>(memory), position, frames);
        },
        frames * getFormat().channels * static_cast<int>(sizeof(double)), page.protocol);
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
        auto const index = static_cast<std::size_t>(position / _framesPerPage);
        auto const next = std::min((position / _framesPerPage + 1) * _framesPerPage, end);
        bool const isNew = index != std::exchange(_current, index);
        if (isNew)
            _memory.getFigures().visited(_pages[index].protocol->takePrefetched());
        append(samples, index, position, next);
        if (isNew)
            loadBehind(index);
        position = next;
    }
    return samples;
}

void BufferedClip::append(std::vector<double> &samples, std::size_t index, std::int64_t position,
                          std::int64_t end) const
{
    MbBufferRdGuardImp const guard(_pages[index].buffer);
    auto const first = static_cast<std::int64_t>(index) * _framesPerPage;
    auto const page = static_cast<double const *>(guard.getMemory());
    auto const channels = getFormat().channels;
    samples.insert(samples.end(), page + (position - first) * channels,
                   page + (end - first) * channels);
}

/// Without a guard: this may wait for memory.
void BufferedClip::loadBehind(std::size_t index)
{
    for (int i = 0; i < _memory.getAhead() && ++index < _pages.size(); ++i)
        _pages[index].buffer.prefetch();
}
