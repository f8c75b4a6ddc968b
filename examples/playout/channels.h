// Loudspeakers of a recording's channels.
#pragma once

#include <sndfile.h>

#include <cstddef>
#include <string>
#include <vector>

/// The channels of a recording, by the names of their loudspeakers. They are in the order of a
/// file, or in that of the blocks that pass through the devices. Formats order their channels
/// differently. In a Vorbis file the centre is second and the low frequencies are last. In a WAV
/// file they are third and fourth.
///
/// If a file does not name its channels, they are taken for those
/// that a WAV file with this number of channels usually has. If there are more than eight, they are
/// only numbered.
class Channels
{
public:
    Channels() = default;

    /// Returns the channels of a file that is open for reading, in its own order.
    static Channels ofFile(SNDFILE *file, SF_INFO const &info);
    /// Returns the channels that a WAV file with this number of channels usually has.
    static Channels ofNumber(std::size_t number) { return Channels(getUsual(number), false); }
    /// Returns these channels in the order of blocks.
    Channels inBlockOrder() const;
    /// Returns these channels in the order of a file of libsndfile's format `type`. If `file` is a
    /// WAV or AIFF file and the channels need names, their names are written to it. It must be open
    /// for writing. Throws `std::invalid_argument` with the names if such a file has no place for
    /// one of the channels.
    Channels assignTo(SNDFILE *file, int type) const;

    std::size_t getNumber() const { return _speakers.size(); }
    /// Returns the name of a channel: "left". One without a name is called by its number.
    std::string getName(std::size_t index) const;
    /// Returns whether a WAV file has to name these channels. It has to if they have names and are
    /// more than two or unusual.
    bool needNames() const;
    /// Returns the index in this object of each channel of `order`, which must have the same
    /// channels.
    std::vector<std::size_t> getIndices(Channels const &order) const;
    /// Returns whether both objects have the same channels, in any order. A single pair of
    /// surrounds may be called "side" in one object and "rear" in the other.
    bool areThoseOf(Channels const &other) const;

private:
    // Values of libsndfile's SF_CHANNEL_MAP, or numbers from FIRST_NUMBER on.
    using Speakers = std::vector<int>;

    Channels(Speakers speakers, bool isNamed);

    static Speakers getUsual(std::size_t number);
    static Speakers getVorbis(std::size_t number);
    Speakers withOnePair() const;
    std::string toText() const;
    [[noreturn]] void refuse() const;

    Speakers _speakers;
    bool _isNamed = false;
};

/// Reorders interleaved samples. Channel `i` of each frame gets the sample of channel `indices[i]`.
void reorder(std::vector<double> &samples, std::vector<std::size_t> const &indices);
