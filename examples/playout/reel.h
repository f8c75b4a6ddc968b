// The clips of a show in a row.
#pragma once

#include "clip.h"

#include <deque>
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
    /// Keeps a few clips ready and lets the others rest, so that a show may have more clips than a process may have
    /// open files.
    std::vector<double> read(std::int64_t position, int frames) override;

private:
    struct Part
    {
        std::unique_ptr<Clip> clip;
        std::int64_t
            begin; // of its frames in the whole; meaningless behind a part of unknown length
        std::int64_t frames; // may be UNKNOWN until its end has been met
    };

    std::size_t find(std::int64_t position) const;
    void use(std::size_t index);

    std::vector<Part> _parts;
    std::size_t _nbKnown = 0;      // parts from the first one on whose `begin` is known
    std::deque<std::size_t> _used; // the parts that do not rest; the one used last is last
    AudioFormat _format;
};
