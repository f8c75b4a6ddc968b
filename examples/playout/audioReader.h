// Reads a sound file.
#pragma once

#include "clip.h"

#include <sndfile.h>
#include <sys/stat.h>

#include <memory>
#include <string>
#include <vector>

/// A clip that reads a sound file directly. PCM samples are exact, because they are read as
/// integers of 32 bits.
class AudioReader : public Clip
{
public:
    /// Opens the file. Throws `PlayoutEx::Input` if it cannot be read, and `PlayoutEx::Interrupted`
    /// if a signal ends the wait for the other end of a pipe.
    explicit AudioReader(std::string const &path);

    AudioFormat const &getFormat() const override { return _format; }
    std::vector<double> read(std::int64_t position, int frames) override;
    /// Closes a regular file, which the next `read` opens again. Does nothing for a pipe, which
    /// could not be opened again.
    void rest() override;

private:
    void open();
    int openDescriptor() const;

    std::string _path;
    struct stat _status = {}; // of the file when it was opened
    std::unique_ptr<SNDFILE, int (*)(SNDFILE *)> _file;
    AudioFormat _format;
    // For each channel of a block, its index in the file. Empty if the orders are equal.
    std::vector<std::size_t> _indices;
    std::int64_t _position = 0;
    std::vector<int> _numbers; // of one block, for PCM
};
