#include "reel.h"

#include "playoutEx.h"

#include <algorithm>

void Reel::add(std::unique_ptr<Clip> clip, std::string const &path)
{
    AudioFormat const &format = clip->getFormat();
    if (_parts.empty()) {
        _format = format;
    } else {
        if (format.channels != _format.channels || format.rate != _format.rate)
            ZV_THROW(PlayoutEx::Input, path.c_str(),
                     "its channels and its rate are not those of the clip before it");
        // Floating point, whose bits count as none, is finer than all PCM.
        int const bits = AudioFormat::getPcmBits(_format.encoding);
        int const others = AudioFormat::getPcmBits(format.encoding);
        if (bits && (!others || others > bits))
            _format.encoding = format.encoding;
        bool const isKnown = std::min(_format.frames, format.frames) != AudioFormat::UNKNOWN;
        _format.frames = isKnown ? _format.frames + format.frames : AudioFormat::UNKNOWN;
    }
    auto const frames = format.frames; // before the clip goes
    _parts.push_back({std::move(clip), frames});
}

std::vector<double> Reel::read(std::int64_t position, int frames)
{
    std::vector<double> samples;
    for (auto &[clip, length] : _parts) {
        while (frames > 0 && (length == AudioFormat::UNKNOWN || position < length)) {
            auto const piece = clip->read(position, frames);
            if (piece.empty()) {
                length = position;
                break;
            }
            samples.insert(samples.end(), piece.begin(), piece.end());
            auto const count = static_cast<int>(piece.size()) / _format.channels;
            position += count;
            frames -= count;
        }
        position -= length;
    }
    return samples;
}
