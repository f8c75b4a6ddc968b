// Writes a sound file.
#pragma once

#include "audioFormat.h"
#include "partFile.h"

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// Writes a sound file that gets its name only when it is complete. If the writer is destroyed
/// before that, it leaves no file. One thread at a time.
class AudioWriter
{
public:
    /// Begins a file. The extension of `path` chooses the container: .wav, .aiff or .aif, .flac,
    /// .ogg or .oga. The encoding is that of `format` if the container takes it, else the nearest.
    /// The channels keep their loudspeakers, in the order of the container. Throws
    /// `PlayoutEx::Output` if the file cannot be written, or if the container has no place for one
    /// of the channels.
    AudioWriter(std::string const &path, AudioFormat const &format);

    /// Appends interleaved samples with full scale 1.0 and with the channels in the order of
    /// blocks. PCM is rounded to the file's bits and clipped. Throws `PlayoutEx::Output`.
    void write(std::vector<double> const &block);
    /// Completes the file. Throws `PlayoutEx::Output`.
    void finish();
    /// Puts the finished file in its place. Call it while a `Signals::Critical` exists. Throws
    /// `PlayoutEx::Output`.
    void commit() { _part->commit(); }

private:
    [[noreturn]] void fail(char const *reason) const;
    void correctLength() const;

    std::string _path;
    int _channels;
    int _format = 0; // of libsndfile
    int _bits = 0;   // 0 for encodings that are not PCM
    std::int64_t _frames = 0;
    // For each channel of the file, its index in a block. Empty if the orders are equal.
    std::vector<std::size_t> _indices;
    std::unique_ptr<PartFile> _part;
    // Writes into the part, also when it is closed, so it must be destroyed first.
    std::unique_ptr<SNDFILE, int (*)(SNDFILE *)> _file;
    std::vector<int> _numbers; // of one block, for PCM
};
