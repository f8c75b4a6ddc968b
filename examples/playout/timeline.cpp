#include "timeline.h"

#include <cmath>
#include <stdexcept>

using namespace Zv;

namespace {

RCShdPtr<LiTimeCode> findRate(std::string const &name)
{
    for (RCShdPtr<LiTimeCode> const &rate : {RCShdPtr<LiTimeCode>(LiTimeCodeFilm24::create()),
                                             RCShdPtr<LiTimeCode>(LiTimeCodeNtscNd::create()),
                                             RCShdPtr<LiTimeCode>(LiTimeCodeNtscDf::create())})
        if (rate->getShortName() == name.c_str())
            return rate;
    return LiTimeCodePal::create();
}

} // namespace

Timeline::Timeline(std::string const &rate) : _rate(findRate(rate)) {}

std::string Timeline::getTimecode(std::int64_t frame) const
{
    return _rate->getTimecode(frame).getChars();
}

std::int64_t Timeline::getFrame(std::string const &timecode) const
{
    // Binary search. All timecodes have one length, so their texts have the order of the frames.
    std::int64_t first = 0;
    for (std::int64_t count = _rate->getFramesPerTC24h(); count > 0;) {
        std::int64_t const half = count / 2;
        bool const isBehind = getTimecode(first + half) < timecode;
        first += isBehind ? half + 1 : 0;
        count = isBehind ? count - half - 1 : half;
    }
    if (getTimecode(first) != timecode)
        throw std::invalid_argument("\"" + timecode + "\" is no timecode of " + getName());
    return first;
}

std::int64_t Timeline::getSample(std::int64_t frame, int rate) const
{
    Rational const editRate = _rate->getEditRate();
    return frame * rate * editRate.getDenominator() / editRate.getNumerator();
}

std::int64_t Timeline::getFrameAt(double seconds) const
{
    // Rounding errors must not give the previous frame.
    return static_cast<std::int64_t>(std::floor(seconds / getInterval() + 1e-6));
}
