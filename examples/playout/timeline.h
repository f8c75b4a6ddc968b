// Frames of a show's clock.
#pragma once

#include <resmgt/literals.h>

#include <cstdint>
#include <string>

/// Counts a show in the frames of a video rate: which frame has which timecode, and when it begins. Immutable.
class Timeline
{
public:
    /// `rate` is the short name of one of the library's rates, such as "NTSC DF".
    explicit Timeline(std::string const &rate);

    std::string getName() const { return _rate->getFullName().getChars(); }
    /// Seconds from frame to frame.
    double getInterval() const { return 1 / _rate->getEditRate().getDouble(); }
    std::string getTimecode(std::int64_t frame) const;
    /// The frame of a timecode, within the first 24 hours. Throws `std::invalid_argument` for one that this rate has not,
    /// such as the labels that drop-frame drops.
    std::int64_t getFrame(std::string const &timecode) const;
    /// The first sample of a frame, at a rate of samples.
    std::int64_t getSample(std::int64_t frame, int rate) const;
    /// The frame at a moment in seconds.
    std::int64_t getFrameAt(double seconds) const;

private:
    Zv::RCShdPtr<Zv::LiTimeCode> _rate;
};
