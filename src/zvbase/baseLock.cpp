#include "zvbase/baseLock.private.h"

#include "platform/services.h"

namespace Zv {

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
    if (_state.load(ZvPlatform::Order::ACQUIRE) != READY) [[unlikely]]
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
    if (_state.compare_exchange_strong(state, std::uint32_t{IN_THE_MAKING},
                                       ZvPlatform::Order::RELAXED, ZvPlatform::Order::RELAXED)) {
        ::InitializeCriticalSection(&_section);
        _state.store(std::uint32_t{READY}, ZvPlatform::Order::RELEASE);
        return;
    }
    while (_state.load(ZvPlatform::Order::ACQUIRE) != READY)
        ::Sleep(0);
}

} // namespace Zv
