#include "zvbase/baseLock.private.h"

#include "platform/services.h"

namespace Zv {

namespace Interlocked = ZvPlatform::Interlocked;

namespace {

enum State : std::uint32_t
{
    RAW,
    IN_THE_MAKING,
    READY
};

} // namespace

// The functions of critical sections have no annotations.
void BaseLock::lock() ZV_NO_THREAD_SAFETY_ANALYSIS
{
    if (Interlocked::loadAcquire(_state) != READY) [[unlikely]]
        initialise();
    ::EnterCriticalSection(&_section);
}

void BaseLock::unlock() ZV_NO_THREAD_SAFETY_ANALYSIS
{
    ::LeaveCriticalSection(&_section);
}

void BaseLock::initialise()
{
    std::uint32_t state = RAW;
    if (Interlocked::compareExchange(_state, state, std::uint32_t{IN_THE_MAKING})) {
        ::InitializeCriticalSection(&_section);
        Interlocked::storeRelease(_state, std::uint32_t{READY});
        return;
    }
    while (Interlocked::loadAcquire(_state) != READY)
        ::Sleep(0);
}

} // namespace Zv
