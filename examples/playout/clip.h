// Interface of a recording that can be played.
#pragma once

#include "audioFormat.h"

#include <cstdint>
#include <vector>

/// Recording that can be read at any position. One thread at a time.
class Clip
{
public:
    virtual ~Clip() noexcept(false) = default;

    virtual AudioFormat const &getFormat() const = 0;
    /// Returns up to `frames` frames from `position` on, interleaved, with the channels in the
    /// order of blocks and with full scale 1.0 for every encoding. Returns an empty vector if
    /// `position` is at the end or behind it. Throws `PlayoutEx::Input` if a file cannot be read or
    /// ends before its last frame.
    virtual std::vector<double> read(std::int64_t position, int frames) = 0;
    /// Releases what the next `read` can acquire again, such as an open file.
    virtual void rest() {}
};
