#include "resmgt/locks/lkPulse.h"

#include "platform/services.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkUtil.h"
#include "zvbase/failures.h"

#include <bit>
#include <ostream>

namespace Zv {

namespace {

constexpr LONG MAX_PULSES = 0x7fffffff;
constexpr std::uint64_t ONE_SLEEPER = std::uint64_t{1} << 32;

DWORD generationOf(std::uint64_t sleepers)
{
    return static_cast<DWORD>(sleepers);
}

/// Returns the address of the generation within the word.
void *generationAddress(ZvPlatform::Shared<std::uint64_t> &sleepers)
{
    int const offset = std::endian::native == std::endian::little ? 0 : sizeof(DWORD);
    return reinterpret_cast<char *>(&sleepers) + offset;
}

void reacquire(LkMutex const &externalMutex)
{
    ZV_SYS_ASSERT(::WaitForSingleObject( externalMutex.getImp().getMutex(), INFINITE ) == WAIT_OBJECT_0);
    externalMutex.getImp().updateLockingThreadId();
}

/// Runs a wait and takes the mutex again, also if the wait fails: the caller's guard is going to
/// release it.
template <class Wait>
bool waitAndReacquire(LkMutex const &externalMutex, Wait wait)
{
    bool wasWoken;
    try {
        wasWoken = wait();
    } catch (...) {
        ::WaitForSingleObject(externalMutex.getImp().getMutex(), INFINITE);
        externalMutex.getImp().updateLockingThreadId();
        throw;
    }
    reacquire(externalMutex);
    return wasWoken;
}

} // namespace

LkPulseWindows::LkPulseWindows(char const *name, bool wakeAll)
    // An event would wake all waiting threads for each pulse.
    : _event(wakeAll ? ::CreateEventA(NULL, TRUE, FALSE, NULL)
                     : ::CreateSemaphoreA(NULL, 0, MAX_PULSES, NULL)),
      _wakeAll(wakeAll),
      _name(name),
      _sleepers(0)
{
    ZV_SYS_ASSERT(_event!= NULL);
}

LkPulseWindows::~LkPulseWindows() noexcept(false)
{
    ZV_SYS_ASSERT_IN_DESTRUCTOR(::CloseHandle( _event ));
}

void LkPulseWindows::pulse() const
{
    // Read before the pulse is sent. A thread that the pulse wakes may destroy this object, unless
    // another thread sleeps here.
    bool const hasSleepers = _sleepers.load(ZvPlatform::Order::RELAXED) >= ONE_SLEEPER;
    if (_wakeAll)
        ::SetEvent(_event);
    else
        ::ReleaseSemaphore(_event, 1, NULL);
    if (!hasSleepers)
        return;

    void * const address = generationAddress(_sleepers);
    std::uint64_t sleepers = _sleepers.load(ZvPlatform::Order::RELAXED);
    do {
        if (sleepers < ONE_SLEEPER)
            return;
    } while (
        !_sleepers.compare_exchange_strong(sleepers, std::uint64_t{generationOf(sleepers) + 1u},
                                           ZvPlatform::Order::RELEASE, ZvPlatform::Order::RELAXED));
    ::WakeByAddressAll(address);
}

void LkPulseWindows::wait(LkMutex const &externalMutex) const
{
    ZV_ASSERT(wait_internal( externalMutex, INFINITE ));
}

bool LkPulseWindows::timedWait(LkMutex const &externalMutex, double seconds) const
{
    return wait_internal(externalMutex, LkUtil::toMilliseconds(seconds));
}

bool LkPulseWindows::wait_internal(LkMutex const &externalMutex, std::uint32_t milliseconds) const
{
    ZV_SYS_ASSERT(::ReleaseMutex( externalMutex.getImp().getMutex() ));
    return waitAndReacquire(externalMutex, [&] { return takePulse(milliseconds); });
}

bool LkPulseWindows::takePulse(std::uint32_t milliseconds) const
{
    DWORD const ret = ::WaitForSingleObjectEx(_event, milliseconds, FALSE);
    ZV_SYS_ASSERT(ret == WAIT_OBJECT_0 || ret == WAIT_TIMEOUT);
    return ret == WAIT_OBJECT_0;
}

void LkPulseWindows::waitNext(LkMutex const &externalMutex) const
{
    waitNextInternal(externalMutex, INFINITE);
}

bool LkPulseWindows::timedWaitNext(LkMutex const &externalMutex, double seconds) const
{
    return waitNextInternal(externalMutex, LkUtil::toMilliseconds(seconds));
}

bool LkPulseWindows::waitNextInternal(LkMutex const &externalMutex,
                                      std::uint32_t milliseconds) const
{
    // Counted in before the mutex is released: a pulse after that finds a sleeper.
    DWORD const generation =
        generationOf(_sleepers.fetch_add(ONE_SLEEPER, ZvPlatform::Order::RELAXED) + ONE_SLEEPER);
    try {
        ZV_SYS_ASSERT(::ReleaseMutex( externalMutex.getImp().getMutex() ));
    } catch (...) {
        withdraw(generation);
        throw;
    }
    return waitAndReacquire(externalMutex,
                            [&] { return sleepUntilNext(generation, milliseconds); });
}

bool LkPulseWindows::sleepUntilNext(std::uint32_t generation, std::uint32_t milliseconds) const
{
    DWORD const start = milliseconds == INFINITE ? 0 : ::timeGetTime();
    DWORD rest = milliseconds;
    while (generationOf(_sleepers.load(ZvPlatform::Order::ACQUIRE)) == generation) {
        bool const wasWoken =
            ::WaitOnAddress(generationAddress(_sleepers), &generation, sizeof generation, rest);
        if (!wasWoken && ::GetLastError() == ERROR_TIMEOUT)
            return !withdraw(generation);
        if (milliseconds != INFINITE) {
            DWORD const passed = ::timeGetTime() - start;
            rest = passed < milliseconds ? milliseconds - passed : 0;
        }
    }
    return true;
}

/// Counts the caller out again. Returns false if a pulse has done so already.
bool LkPulseWindows::withdraw(std::uint32_t generation) const
{
    std::uint64_t sleepers = _sleepers.load(ZvPlatform::Order::ACQUIRE);
    while (generationOf(sleepers) == generation)
        if (_sleepers.compare_exchange_strong(sleepers, sleepers - ONE_SLEEPER,
                                              ZvPlatform::Order::ACQUIRE,
                                              ZvPlatform::Order::ACQUIRE))
            return true;
    return false;
}

void LkPulseWindows::dump(std::ostream &stream) const
{
    stream << _name;
}

} // namespace Zv
