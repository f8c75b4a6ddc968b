// Reading a sound file.
#pragma once

#include "audioFormat.h"

#include <sndfile.h>

#include <memory>
#include <string>
#include <vector>

/// An open sound file. Samples are in full scale 1.0 whatever the file's encoding, and exact: PCM goes through whole
/// numbers of 32 bits. One thread at a time.
class AudioReader
{
public:
    /// Throws `PlayoutEx::Input`.
    explicit AudioReader(std::string const &path);

    AudioFormat const &getFormat() const { return _format; }
    /// The next `frames` frames, interleaved; fewer at the end of the file, and none behind it. Throws
    /// `PlayoutEx::Input`, also for a file that ends before its time.
    std::vector<double> read(int frames);

private:
    std::string _path;
    std::unique_ptr<SNDFILE, int (*)(SNDFILE *)> _file;
    AudioFormat _format;
    std::int64_t _framesRead = 0;
    std::vector<int> _numbers; // of one block, for PCM
};
