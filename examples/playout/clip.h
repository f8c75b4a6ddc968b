// Something to play.
#pragma once

#include "audioFormat.h"

#include <cstdint>
#include <vector>

/// A recording that can be read from anywhere. One thread at a time.
class Clip
{
public:
    virtual ~Clip() noexcept(false) = default;

    virtual AudioFormat const &getFormat() const = 0;
    /// Up to `frames` frames from `position` on, interleaved, the channels in the order of blocks, in full scale 1.0 whatever the file's encoding: fewer at
    /// its end, and none behind it. Throws `PlayoutEx::Input`, also for a file that ends before its time.
    virtual std::vector<double> read(std::int64_t position, int frames) = 0;
    /// Gives back what the next `read` can have again, such as an open file.
    virtual void rest() {}
};
