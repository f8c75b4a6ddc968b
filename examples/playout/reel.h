// The clips of a show in a row.
#pragma once

#include "clip.h"

#include <memory>
#include <string>
#include <vector>

/// Clips of one kind, one after the other, as one recording.
class Reel : public Clip
{
public:
    /// Puts a clip at the end. Throws `PlayoutEx::Input` for one of other channels or another rate than the first; its
    /// path is for that.
    void add(std::unique_ptr<Clip> clip, std::string const &path);

    /// Of all: the finest encoding, and the sum of frames where every clip's are known.
    AudioFormat const &getFormat() const override { return _format; }
    std::vector<double> read(std::int64_t position, int frames) override;

private:
    struct Part
    {
        std::unique_ptr<Clip> clip;
        std::int64_t frames; // may be UNKNOWN until its end has been met
    };

    std::vector<Part> _parts;
    AudioFormat _format;
};
