#include "resmgt/syncEngine/seSourceProtocol.h"

#include "resmgt/locks/lkSingleton.imp.h"

#include <algorithm>
#include <ostream>

namespace Zv {

SeSourceProtocol::~SeSourceProtocol() noexcept(false) = default;

std::ostream &operator<<(std::ostream &stream, SeSourceProtocol &source)
{
    return source.dump(stream);
}

ZV_DEFINE_SINGLETON(SeSourceClock, SeSourceClock);

SeSourceClock::SeSourceClock() : _timer(PeriodicTimer::create(getDefaultInterval())) {}

SeSourceClock::~SeSourceClock() noexcept(false) = default;

double SeSourceClock::getDefaultInterval()
{
    return std::max(DEF_WAIT_INTERVAL, PeriodicTimer::getResolution());
}

double SeSourceClock::adjustInterval(double interval)
{
    double const resolution = PeriodicTimer::getResolution();
    return interval > resolution ? interval : resolution;
}

double SeSourceClock::setInterval(double interval)
{
    return _timer->setInterval(adjustInterval(interval));
}

double SeSourceClock::getInterval() const
{
    return _timer->getInterval();
}

void SeSourceClock::start()
{
    _timer->reset();
}

void SeSourceClock::stop()
{
    _timer->reset();
}

std::uint32_t SeSourceClock::waitSync()
{
    return static_cast<std::uint32_t>(_timer->wait());
}

double SeSourceClock::getRate()
{
    return 1.0 / getInterval();
}

char const *SeSourceClock::getName()
{
    return "Clock";
}

std::ostream &SeSourceClock::dump(std::ostream &stream)
{
    return stream << getName() << " interval " << getInterval() << " count "
                  << _timer->getCurrentCount();
}

} // namespace Zv
