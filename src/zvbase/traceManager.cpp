#include "zvbase/traceManager.h"

#include "platform/services.h"
#include "zvbase/baseLock.private.h"
#include "zvbase/failures.h"
#include "zvbase/lgTrace.h"
#include "zvbase/platform/interlocked.h"
#include "zvbase/scope.private.h"
#include "zvbase/traceTags.private.h"

namespace Zv {

namespace Interlocked = ZvPlatform::Interlocked;

namespace {

/// In charge if there is no library with threads.
class OwnManager : public TraceManager
{
public:
    Trace *getTrace() override { return &_trace; }
    void print(char const *text) override { LgTrace::print(text); }

private:
    Trace _trace;
};

constinit BaseLock managersLock;
constinit TraceManager *inCharge = nullptr; // read without the lock
constinit std::uint32_t nbInside = 0;       // threads that are inside of a manager
constinit unsigned generation = 1;

void leaveManager()
{
    if (Interlocked::decrement(nbInside) == 0)
        ::WakeByAddressAll(&nbInside);
}

void waitUntilNoThreadIsInside()
{
    while (std::uint32_t nb = Interlocked::loadAcquire(nbInside))
        ::WaitOnAddress(&nbInside, &nb, sizeof nb, INFINITE);
}

} // namespace

unsigned TraceTags::getGeneration()
{
    return Interlocked::loadAcquire(generation);
}

void TraceTags::write(std::ostream &stream)
{
    Interlocked::increment(nbInside);
    AtScopeEnd const leaving(&leaveManager);
    TraceManager::getInstance()->getTrace()->writeTag(stream);
}

void TraceTags::install(TraceManager &manager)
{
    BaseGuard const guard(managersLock);
    ZV_ASSERT(!manager._isInstalled);
    manager._former = TraceManager::getInstance();
    manager._isInstalled = true;
    Interlocked::exchange(inCharge, &manager);
    Interlocked::increment(generation);
}

void TraceTags::retire(TraceManager &manager)
{
    {
        BaseGuard const guard(managersLock);
        if (!manager._isInstalled)
            return;
        ZV_ASSERT(inCharge == &manager);
        manager._isInstalled = false;
        Interlocked::exchange(inCharge, manager._former);
        Interlocked::increment(generation);
    }
    waitUntilNoThreadIsInside();
}

TraceManager *TraceManager::getInstance()
{
    TraceManager *known = Interlocked::loadAcquire(inCharge);
    if (!known) {
        TraceManager * const made = new OwnManager;
        if (Interlocked::compareExchange(inCharge, known, made))
            return made;
        delete made;
    }
    return known;
}

TraceManager::TraceManager() = default;
TraceManager::~TraceManager() = default;

void TraceManager::install()
{
    TraceTags::install(*this);
}

void TraceManager::retire()
{
    TraceTags::retire(*this);
}

} // namespace Zv
