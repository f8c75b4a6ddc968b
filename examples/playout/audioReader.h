// Reading a sound file.
#pragma once

#include "clip.h"

#include <sndfile.h>
#include <sys/stat.h>

#include <memory>
#include <string>
#include <vector>

/// A sound file, read as it comes. Samples are exact: PCM goes through whole numbers of 32 bits.
class AudioReader : public Clip
{
public:
    /// Throws `PlayoutEx::Input`.
    explicit AudioReader(std::string const &path);

    AudioFormat const &getFormat() const override { return _format; }
    std::vector<double> read(std::int64_t position, int frames) override;
    /// Closes the file. Does nothing for a pipe, which could not be opened again.
    void rest() override;

private:
    void open();
    int openDescriptor() const;

    std::string _path;
    struct stat _status = {}; // of the file when it was opened first
    std::unique_ptr<SNDFILE, int (*)(SNDFILE *)> _file;
    AudioFormat _format;
    std::vector<std::size_t>
        _indices; // of the channels of a block in the file; empty if the orders are the same
    std::int64_t _position = 0;
    std::vector<int> _numbers; // of one block, for PCM
};
