#include "journal.h"

#include <algorithm>
#include <numeric>
#include <utility>

using namespace Zv;

namespace {

constexpr std::size_t MOST_MOVES = 10000;

} // namespace

void Series::add(double moment, double value)
{
    if (moment < 0)
        return;
    while (moment / _length >= MOST_SPANS)
        halve();
    auto const index = static_cast<std::size_t>(moment / _length);
    if (index >= _spans.size())
        _spans.resize(index + 1);
    Span &span = _spans[index];
    span.largest = span.count ? std::max(span.largest, value) : value;
    span.last = value;
    ++span.count;
    _largest = _count ? std::max(_largest, value) : value;
    ++_count;
}

void Series::halve()
{
    _length *= 2;
    _spans.resize((_spans.size() + 1) / 2 * 2);
    for (std::size_t i = 0; i < _spans.size(); i += 2) {
        Span const first = _spans[i];
        Span const &second = _spans[i + 1];
        Span &both = _spans[i / 2];
        both = second.count ? second : first;
        both.count = first.count + second.count;
        if (first.count)
            both.largest = std::max(both.largest, first.largest);
    }
    _spans.resize(_spans.size() / 2);
}

void Histogram::add(double seconds)
{
    auto const place = std::upper_bound(BOUNDS.begin(), BOUNDS.end(), seconds);
    ++_counts[static_cast<std::size_t>(place - BOUNDS.begin())];
    _longest = std::max(_longest, seconds);
}

std::int64_t Histogram::getCount() const
{
    return std::accumulate(_counts.begin(), _counts.end(), std::int64_t(0));
}

void Journal::begin(double moment)
{
    LkGuard<LkLock const> const guard(_lock);
    _begin = moment;
    _records.bytes.add(0, _bytesAtBegin);
}

void Journal::move(std::string const &device, std::string const &state, double moment)
{
    LkGuard<LkLock const> const guard(_lock);
    if (_records.moves.size() == MOST_MOVES)
        ++_records.nbDroppedMoves;
    else
        _records.moves.push_back({moment - _begin, device, state});
}

void Journal::request(std::string const &device, double begin, double end)
{
    LkGuard<LkLock const> const guard(_lock);
    if (_begin > 0)
        _records.requests[device].add(end - _begin, end - begin);
}

void Journal::load(double begin, double end)
{
    LkGuard<LkLock const> const guard(_lock);
    if (_begin > 0)
        _records.loads.add(end - _begin, end - begin);
}

void Journal::unload(double moment)
{
    LkGuard<LkLock const> const guard(_lock);
    if (_begin > 0)
        _records.unloads.add(moment - _begin, 0);
}

void Journal::use(std::int64_t bytes, double moment)
{
    LkGuard<LkLock const> const guard(_lock);
    if (_begin > 0)
        _records.bytes.add(moment - _begin, static_cast<double>(bytes));
    else
        _bytesAtBegin = static_cast<double>(bytes);
}

void Journal::beat(std::string const &device, double lateness)
{
    LkGuard<LkLock const> const guard(_lock);
    _records.lateness[device].add(lateness);
}

void Journal::keep(std::unique_ptr<Waveform> waveform)
{
    {
        LkGuard<LkLock const> const guard(_lock);
        _waveform.swap(waveform);
    }
    // A former waveform is destroyed here, without the lock, because it ends its threads.
}

Journal::Records Journal::getRecords() const
{
    LkGuard<LkLock const> const guard(_lock);
    return _records;
}

std::unique_ptr<Waveform> Journal::takeWaveform()
{
    LkGuard<LkLock const> const guard(_lock);
    return std::move(_waveform);
}
