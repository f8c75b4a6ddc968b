// Timecodes and frames of a show's clock.
#pragma once

#include <resmgt/literals.h>

#include <cstdint>
#include <string>

/// Converts between frames of a video rate, their timecodes, samples and seconds. Immutable.
class Timeline
{
public:
    /// `rate` is the short name of one of the library's rates, such as "NTSC DF". Any other name
    /// means PAL.
    explicit Timeline(std::string const &rate);

    std::string getName() const { return _rate->getFullName().getChars(); }
    /// Returns the seconds from frame to frame.
    double getInterval() const { return 1 / _rate->getEditRate().getDouble(); }
    std::string getTimecode(std::int64_t frame) const;
    /// Returns the frame of a timecode, within the first 24 hours. Throws `std::invalid_argument`
    /// if the rate does not have this timecode, such as the labels that drop-frame drops.
    std::int64_t getFrame(std::string const &timecode) const;
    /// Returns the first sample of a frame at a sample rate.
    std::int64_t getSample(std::int64_t frame, int rate) const;
    /// Returns the frame at a position in seconds.
    std::int64_t getFrameAt(double seconds) const;

private:
    Zv::RCShdPtr<Zv::LiTimeCode> _rate;
};
