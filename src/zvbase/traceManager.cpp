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
constinit ZvPlatform::Shared<TraceManager *> inCharge{nullptr}; // read without the lock
constinit ZvPlatform::Shared<std::uint32_t> nbInside{0}; // threads that are inside of a manager
constinit ZvPlatform::Shared<unsigned> generation{1};

void leaveManager()
{
    if (nbInside.fetch_sub(1, std::memory_order_seq_cst) == 1)
        ::WakeByAddressAll(&nbInside);
}

void waitUntilNoThreadIsInside()
{
    while (std::uint32_t nb = nbInside.load(std::memory_order_acquire))
        ::WaitOnAddress(&nbInside, &nb, sizeof nb, INFINITE);
}

} // namespace

unsigned TraceTags::getGeneration()
{
    return generation.load(std::memory_order_acquire);
}

void TraceTags::write(std::ostream &stream)
{
    nbInside.fetch_add(1, std::memory_order_seq_cst);
    AtScopeEnd const leaving(&leaveManager);
    TraceManager::getInstance()->getTrace()->writeTag(stream);
}

void TraceTags::install(TraceManager &manager)
{
    BaseGuard const guard(managersLock);
    ZV_ASSERT(!manager._isInstalled);
    manager._former = TraceManager::getInstance();
    manager._isInstalled = true;
    inCharge.exchange(&manager, std::memory_order_seq_cst);
    generation.fetch_add(1, std::memory_order_seq_cst);
}

void TraceTags::retire(TraceManager &manager)
{
    {
        BaseGuard const guard(managersLock);
        if (!manager._isInstalled)
            return;
        if (inCharge.load(std::memory_order_relaxed) != &manager)
            Assertions::throwAssertionFailed(__FILE__, __LINE__, "inCharge == &manager");
        manager._isInstalled = false;
        inCharge.exchange(manager._former, std::memory_order_seq_cst);
        generation.fetch_add(1, std::memory_order_seq_cst);
    }
    waitUntilNoThreadIsInside();
}

TraceManager *TraceManager::getInstance()
{
    TraceManager *known = inCharge.load(std::memory_order_acquire);
    if (!known) {
        TraceManager * const made = new OwnManager;
        if (inCharge.compare_exchange_strong(known, made, std::memory_order_seq_cst,
                                             std::memory_order_acquire))
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
