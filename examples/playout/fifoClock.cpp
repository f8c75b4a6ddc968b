#include "fifoClock.h"

#include <zvbase/zvbase.h>

#include <algorithm>

using namespace Zv;

void FifoClock::performProduced(DevANOQueue &, DevANOQueueEntry const &)
{
    LkGuard<LkLock const> const guard(_lock);
    if (_nbEarly)
        --_nbEarly;
    else
        _entered.push_back(Sleeper::getInstance().getTime());
}

void FifoClock::consumed()
{
    LkGuard<LkLock const> const guard(_lock);
    if (_entered.empty()) {
        ++_nbEarly;
        return;
    }
    _longestWait = std::max(_longestWait, Sleeper::getInstance().getTime() - _entered.front());
    _entered.pop_front();
}

double FifoClock::getLongestWait() const
{
    LkGuard<LkLock const> const guard(_lock);
    return _longestWait;
}

std::int64_t FifoClock::getNbWaiting() const
{
    LkGuard<LkLock const> const guard(_lock);
    return static_cast<std::int64_t>(_entered.size());
}
