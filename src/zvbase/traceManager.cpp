#include "zvbase/traceManager.h"

#include "platform/services.h"
#include "zvbase/baseLock.private.h"
#include "zvbase/failures.h"
#include "zvbase/lgTrace.h"
#include "zvbase/platform/shared.h"
#include "zvbase/scope.private.h"
#include "zvbase/traceTags.private.h"

namespace Zv {

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
// Read without the lock. A thread counts itself in before it reads `inCharge`, and `retire` changes
// `inCharge` before it reads the count. The four operations are sequentially consistent. So either
// `retire` waits for the thread, or the thread does not find the retired manager.
constinit ZvPlatform::Shared<TraceManager *> inCharge{nullptr};
constinit ZvPlatform::Shared<std::uint32_t> nbInside{0}; // threads that are inside of a manager
constinit ZvPlatform::Shared<unsigned> generation{1};

void leaveManager()
{
    if (nbInside.fetch_sub(1, ZvPlatform::Order::RELEASE) == 1)
        ::WakeByAddressAll(&nbInside);
}

void waitUntilNoThreadIsInside()
{
    while (std::uint32_t nb = nbInside.load(ZvPlatform::Order::SEQ_CST))
        ::WaitOnAddress(&nbInside, &nb, sizeof nb, INFINITE);
}

} // namespace

unsigned TraceTags::getGeneration()
{
    return generation.load(ZvPlatform::Order::ACQUIRE);
}

void TraceTags::write(std::ostream &stream)
{
    nbInside.fetch_add(1, ZvPlatform::Order::SEQ_CST);
    AtScopeEnd const leaving(&leaveManager);
    TraceManager::getInstance()->getTrace()->writeTag(stream);
}

void TraceTags::install(TraceManager &manager)
{
    BaseGuard const guard(managersLock);
    ZV_ASSERT(!manager._isInstalled);
    manager._former = TraceManager::getInstance();
    manager._isInstalled = true;
    inCharge.store(&manager, ZvPlatform::Order::RELEASE);
    generation.fetch_add(1, ZvPlatform::Order::RELEASE);
}

void TraceTags::retire(TraceManager &manager)
{
    {
        BaseGuard const guard(managersLock);
        if (!manager._isInstalled)
            return;
        if (inCharge.load(ZvPlatform::Order::RELAXED) != &manager)
            Assertions::throwAssertionFailed(__FILE__, __LINE__, "inCharge == &manager");
        manager._isInstalled = false;
        inCharge.exchange(manager._former, ZvPlatform::Order::SEQ_CST);
        generation.fetch_add(1, ZvPlatform::Order::RELEASE);
    }
    waitUntilNoThreadIsInside();
}

TraceManager *TraceManager::getInstance()
{
    TraceManager *known = inCharge.load(ZvPlatform::Order::SEQ_CST);
    if (!known) {
        TraceManager * const made = new OwnManager;
        if (inCharge.compare_exchange_strong(known, made, ZvPlatform::Order::RELEASE,
                                             ZvPlatform::Order::ACQUIRE))
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
