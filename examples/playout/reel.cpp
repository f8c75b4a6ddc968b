#include "reel.h"

#include "playoutEx.h"

#include <algorithm>

namespace {

constexpr std::size_t MOST_USED = 8; // clips

} // namespace

void Reel::add(std::unique_ptr<Clip> clip, std::string const &path)
{
    AudioFormat const &format = clip->getFormat();
    if (_parts.empty()) {
        _format = format;
    } else {
        if (format.channels != _format.channels || format.rate != _format.rate ||
            !format.layout.areThoseOf(_format.layout))
            ZV_THROW(PlayoutEx::Input, path.c_str(),
                     "its channels and its rate are not those of the clip before it");
        // Floating point, for which getPcmBits returns 0, is finer than all PCM.
        int const bits = AudioFormat::getPcmBits(_format.encoding);
        int const others = AudioFormat::getPcmBits(format.encoding);
        if (bits && (!others || others > bits))
            _format.encoding = format.encoding;
        bool const isKnown = std::min(_format.frames, format.frames) != AudioFormat::UNKNOWN;
        _format.frames = isKnown ? _format.frames + format.frames : AudioFormat::UNKNOWN;
    }
    auto const frames = format.frames; // before the clip is moved
    std::int64_t begin = 0;
    if (!_parts.empty())
        begin = _parts.back().begin + std::max<std::int64_t>(_parts.back().frames, 0);
    _parts.push_back({std::move(clip), begin, frames});
    if (_nbKnown + 1 == _parts.size() && frames != AudioFormat::UNKNOWN)
        ++_nbKnown;
    use(_parts.size() - 1);
}

/// Returns the part at which the search for a position must begin.
std::size_t Reel::find(std::int64_t position) const
{
    auto const known = _parts.begin() + static_cast<std::ptrdiff_t>(_nbKnown);
    auto const behind =
        std::upper_bound(_parts.begin(), known, position,
                         [](std::int64_t sought, Part const &part) { return sought < part.begin; });
    return static_cast<std::size_t>(std::max<std::ptrdiff_t>(behind - _parts.begin() - 1, 0));
}

void Reel::use(std::size_t index)
{
    if (!_used.empty() && _used.back() == index)
        return;
    std::erase(_used, index);
    _used.push_back(index);
    if (_used.size() > MOST_USED) {
        _parts[_used.front()].clip->rest();
        _used.pop_front();
    }
}

std::vector<double> Reel::read(std::int64_t position, int frames)
{
    std::vector<double> samples;
    for (std::size_t i = find(position); i < _parts.size() && frames > 0; ++i) {
        auto &[clip, begin, length] = _parts[i];
        if (i > 0 && i >= _nbKnown)
            begin = _parts[i - 1].begin + _parts[i - 1].frames;
        while (frames > 0 && (length == AudioFormat::UNKNOWN || position < begin + length)) {
            use(i);
            auto const piece = clip->read(position - begin, frames);
            if (piece.empty()) {
                length = position - begin;
                break;
            }
            samples.insert(samples.end(), piece.begin(), piece.end());
            auto const count = static_cast<int>(piece.size()) / _format.channels;
            position += count;
            frames -= count;
        }
    }
    return samples;
}
