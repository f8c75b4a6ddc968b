#include "soundCard.h"

#include "jackCard.h"
#include "playoutEx.h"

#include <zvbase/zvbase.h>

#include <algorithm>
#include <ostream>
#include <stdexcept>

using namespace Zv;

namespace {

constexpr double PATIENCE = 0.25; // seconds until a beat comes without the card

double now()
{
    return Sleeper::getInstance().getTime();
}

} // namespace

void SoundCard::check(std::string const &place)
{
    if (place != "jack" && !(place.starts_with("jack:") && place.size() > 5))
        throw std::invalid_argument("\"" + place + "\" is none of jack, jack:PORT,PORT...");
}

std::unique_ptr<SoundCard> SoundCard::open(std::string const &, Timeline const &timeline)
{
#ifdef ZVPLAYOUT_JACK
    return std::make_unique<JackCard>(timeline);
#else
    static_cast<void>(timeline);
    ZV_THROW(PlayoutEx::Client, "this program was built without JACK. Install its development "
                                "files (libjack-jackd2-dev) and build it again");
#endif
}

void SoundCard::start()
{
    _begin = _position = getPosition();
    _beat = 0;
    _movedAt = now();
}

std::uint32_t SoundCard::waitSync()
{
    std::int64_t const due = getDue(_beat + 1);
    double const shortest = 0.25 * getPeriod() / getSampleRate();
    double const end = now() + PATIENCE;
    std::int64_t position = getPosition();
    for (; position < due && now() < end; position = getPosition())
        Sleeper::getInstance().sleep(
            std::max(static_cast<double>(due - position) / getSampleRate(), shortest));
    if (position != _position)
        _movedAt = now();
    _position = position;
    do
        ++_beat;
    while (getDue(_beat + 1) <= position);
    return static_cast<std::uint32_t>(_beat);
}

std::ostream &SoundCard::dump(std::ostream &stream)
{
    return stream << getName() << ": " << getSampleRate() << " samples a second";
}

double SoundCard::getStandstill() const
{
    return _movedAt > 0 ? now() - _movedAt : 0;
}

/// Returns the position of the card at which a beat is due.
std::int64_t SoundCard::getDue(std::int64_t beat) const
{
    return _begin + _timeline.getSample(beat, getSampleRate());
}
