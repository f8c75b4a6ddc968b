// Writing a sound file.
#pragma once

#include "audioFormat.h"
#include "partFile.h"

#include <sndfile.h>

#include <memory>
#include <string>
#include <vector>

/// Writes a sound file that appears under its name only when it is complete; a writer that is destroyed before leaves
/// nothing behind. One thread at a time.
class AudioWriter
{
public:
    /// The extension of `path` chooses the container: .wav, .aiff or .aif, .flac, .ogg or .oga. The encoding is that of
    /// `format` where the container takes it, else the nearest. Throws `PlayoutEx::Output`.
    AudioWriter(std::string const &path, AudioFormat const &format);

    /// Interleaved samples in full scale 1.0. PCM is rounded to the file's bits, and clipped. Throws
    /// `PlayoutEx::Output`.
    void write(std::vector<double> const &samples);
    /// Completes the file and puts it in its place. Throws `PlayoutEx::Output`.
    void finish();

private:
    [[noreturn]] void fail(char const *reason) const;

    std::string _path;
    int _channels;
    int _bits = 0; // 0 for encodings that are not PCM
    std::unique_ptr<PartFile> _part;
    std::unique_ptr<SNDFILE, int (*)(SNDFILE *)>
        _file;                 // writes into the part, also while it is closed
    std::vector<int> _numbers; // of one block, for PCM
};
