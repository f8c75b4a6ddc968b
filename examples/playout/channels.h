// The loudspeakers that the channels of a recording are for.
#pragma once

#include <sndfile.h>

#include <cstddef>
#include <string>
#include <vector>

/// The channels of a recording, by the names of their loudspeakers, in some order: a file's own, or that of the blocks
/// that pass through the devices. Formats order their channels differently. In a Vorbis file the centre comes second
/// and the low frequencies last, in a WAV file they are third and fourth.
///
/// A file may leave its channels without names. Then they are those that a WAV file of so many channels has, as all
/// programs take it; if there are more than eight, they are just numbers.
class Channels
{
public:
    Channels() = default;

    /// Returns the channels of a file that is open for reading, in its own order.
    static Channels ofFile(SNDFILE *file, SF_INFO const &info);
    /// Returns these channels in the order of blocks.
    Channels inBlockOrder() const;
    /// Returns these channels in the order in which a file of libsndfile's format `type` has them, and tells a WAV or
    /// AIFF file that is open for writing their names, if they have any. Throws `std::invalid_argument`, with the names,
    /// if such a file has no place for one of them.
    Channels assignTo(SNDFILE *file, int type) const;

    std::size_t getNumber() const { return _speakers.size(); }
    /// Returns whether a WAV file has to name these channels, because they have names and are more than two or unusual.
    bool needNames() const;
    /// Returns for each channel of `order` its index here. `order` has the same channels.
    std::vector<std::size_t> getIndices(Channels const &order) const;
    /// Whether these are the same channels, in whatever order. A single pair of surrounds is the same pair if one
    /// calls it "side" and the other "rear".
    bool areThoseOf(Channels const &other) const;

private:
    using Speakers =
        std::vector<int>; // of libsndfile's SF_CHANNEL_MAP, or numbers from FIRST_NUMBER on

    Channels(Speakers speakers, bool isNamed);

    static Speakers getUsual(std::size_t number);
    static Speakers getVorbis(std::size_t number);
    Speakers withOnePair() const;
    std::string toText() const;
    [[noreturn]] void refuse() const;

    Speakers _speakers;
    bool _isNamed = false;
};

/// Reorders interleaved samples: channel `i` of each frame becomes what channel `indices[i]` was.
void reorder(std::vector<double> &samples, std::vector<std::size_t> const &indices);
