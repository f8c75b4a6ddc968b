#include "resmgt/deviceManager/devMgrLeftBehind.private.h"

#include "zvbase/platform/interlocked.h"

namespace Zv {

namespace Interlocked = ZvPlatform::Interlocked;

namespace {

constinit DevMgrLeftBehind *newest = nullptr;

} // namespace

void DevMgrLeftBehind::enter()
{
    _next = Interlocked::loadAcquire(newest);
    while (!Interlocked::compareExchange(newest, _next, this)) {
    }
}

} // namespace Zv
