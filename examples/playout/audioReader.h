// Reading a sound file.
#pragma once

#include "clip.h"

#include <sndfile.h>

#include <memory>
#include <string>
#include <vector>

/// An open sound file, read as it comes. Samples are exact: PCM goes through whole numbers of 32 bits.
class AudioReader : public Clip
{
public:
    /// Throws `PlayoutEx::Input`.
    explicit AudioReader(std::string const &path);

    AudioFormat const &getFormat() const override { return _format; }
    std::vector<double> read(std::int64_t position, int frames) override;

private:
    std::string _path;
    std::unique_ptr<SNDFILE, int (*)(SNDFILE *)> _file;
    AudioFormat _format;
    std::int64_t _position = 0;
    std::vector<int> _numbers; // of one block, for PCM
};
