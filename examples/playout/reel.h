// Sequence of clips that is read as one recording.
#pragma once

#include "clip.h"

#include <deque>
#include <memory>
#include <string>
#include <vector>

/// Clips with equal channels and rates, one after the other, as one recording.
class Reel : public Clip
{
public:
    /// Appends a clip. Throws `PlayoutEx::Input`, with the path, if its channels or its rate differ
    /// from those of the first clip.
    void add(std::unique_ptr<Clip> clip, std::string const &path);

    /// Returns the format of the whole, with the finest encoding of all clips. The number of frames
    /// is the sum of all clips, and unknown if one of them is unknown.
    AudioFormat const &getFormat() const override { return _format; }
    /// Keeps a few clips open and calls `rest` of the others, so that a show may have more clips
    /// than a process may have open files.
    std::vector<double> read(std::int64_t position, int frames) override;

private:
    struct Part
    {
        std::unique_ptr<Clip> clip;
        std::int64_t begin;  // in the whole; not valid behind a part of unknown length
        std::int64_t frames; // may be UNKNOWN until its end was read
    };

    std::size_t find(std::int64_t position) const;
    void use(std::size_t index);

    std::vector<Part> _parts;
    std::size_t _nbKnown = 0;      // parts whose `begin` is known: the first ones
    std::deque<std::size_t> _used; // the parts that are open; the last one was used last
    AudioFormat _format;
};
