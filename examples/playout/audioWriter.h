// Writing a sound file.
#pragma once

#include "audioFormat.h"
#include "partFile.h"

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// Writes a sound file that appears under its name only when it is complete; a writer that is destroyed before leaves
/// nothing behind. One thread at a time.
class AudioWriter
{
public:
    /// The extension of `path` chooses the container: .wav, .aiff or .aif, .flac, .ogg or .oga. The encoding is that of
    /// `format` if the container takes it, else the nearest. The channels keep their loudspeakers, whatever order the
    /// container has them in. Throws `PlayoutEx::Output`, also if the container has no place for one of the channels.
    AudioWriter(std::string const &path, AudioFormat const &format);

    /// Interleaved samples in full scale 1.0, their channels in the order of blocks. PCM is rounded to the file's bits, and clipped. Throws
    /// `PlayoutEx::Output`.
    void write(std::vector<double> const &block);
    /// Completes the file. Throws `PlayoutEx::Output`.
    void finish();
    /// Puts the finished file in its place. Call it within a `Signals::Critical`. Throws `PlayoutEx::Output`.
    void commit() { _part->commit(); }

private:
    [[noreturn]] void fail(char const *reason) const;
    void correctLength() const;

    std::string _path;
    int _channels;
    int _format = 0; // of libsndfile
    int _bits = 0;   // 0 for encodings that are not PCM
    std::int64_t _frames = 0;
    std::vector<std::size_t>
        _indices; // of the file's channels in a block; empty if the orders are the same
    std::unique_ptr<PartFile> _part;
    std::unique_ptr<SNDFILE, int (*)(SNDFILE *)>
        _file;                 // writes into the part, also while it is closed
    std::vector<int> _numbers; // of one block, for PCM
};
