#include "resmgt/deviceManager/sequence/devSeqWaiters.private.h"

#include "zvbase/sleeper.h"

#include <algorithm>

namespace Zv {

DevSeqWaiters::DevSeqWaiters()
    : _work("DevSeqSupervision work", LkPulse::WAKE_ALL),
      _changed("DevSeqSupervision changed", LkPulse::WAKE_ALL)
{}

double DevSeqWaiters::now()
{
    return Sleeper::getInstance().getTime();
}

void DevSeqWaiters::waitForWork(Guard const &guard, double moment)
{
    wait(_work, _nbRunners, guard, moment);
}

void DevSeqWaiters::waitForChange(Guard const &guard, double moment)
{
    wait(_changed, _nbClients, guard, moment);
}

void DevSeqWaiters::wakeRunner() const
{
    if (_nbRunners)
        _work.pulse();
}

void DevSeqWaiters::wakeClients() const
{
    if (_nbClients)
        _changed.pulse();
}

void DevSeqWaiters::wait(LkPulse const &pulse, std::size_t &nbWaiting, Guard const &guard,
                         double moment)
{
    struct Waiting
    {
        std::size_t &nb;
        ~Waiting() { --nb; }
    };
    double const seconds = std::clamp(moment - now(), 0.001, LONGEST_WAIT);
    Waiting const waiting{++nbWaiting};
    static_cast<void>(pulse.timedWaitNextPulse(guard, seconds)); // the caller looks at the record
}

} // namespace Zv
