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
    if (_state.load(std::memory_order_acquire) != READY) [[unlikely]]
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
                                       std::memory_order_seq_cst, std::memory_order_acquire)) {
        ::InitializeCriticalSection(&_section);
        _state.store(std::uint32_t{READY}, std::memory_order_release);
        return;
    }
    while (_state.load(std::memory_order_acquire) != READY)
        ::Sleep(0);
}

} // namespace Zv
