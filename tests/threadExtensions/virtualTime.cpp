#include "virtualTime.h"

#include "testing/callingThread.h"
#include "testing/nanosecondClock.h"

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <limits>
#include <list>
#include <mutex>

namespace ZvTest {

namespace {

constexpr LONGLONG NEVER = std::numeric_limits<LONGLONG>::max();
constexpr LONGLONG MILLISECOND = 1'000'000;

constexpr LONGLONG START = 1'000'000 * MILLISECOND;

struct Sleeper
{
    void volatile *address;
    std::uint32_t value;
    LONGLONG deadline;

    bool hasReason(LONGLONG now) const
    {
        return now >= deadline || __atomic_load_n(static_cast<std::uint32_t volatile *>(address),
                                                  __ATOMIC_ACQUIRE) != value;
    }
};

struct State
{
    std::mutex mutex;
    std::condition_variable changed;
    std::list<Sleeper> sleepers;
    LONGLONG now = START;
    int nbSleeps = 0;
};

State &getState()
{
    static State &state = *new State;
    return state;
}

bool isVirtual = false; // changed only while no other thread reads the clock

/// Returns whether the calling thread is the log's reader. It needs the real time, because it waits
/// for lines that are older than its clock.
bool isLogReader()
{
    static thread_local int isReader = -1;
    if (isReader < 0) {
        isReader = getName().starts_with("Log_Reader");
    }
    return isReader;
}

bool getIsVirtual()
{
    return __atomic_load_n(&isVirtual, __ATOMIC_ACQUIRE) && !isLogReader();
}

} // namespace

VirtualTime::VirtualTime()
{
    getState().now = START;
    __atomic_store_n(&isVirtual, true, __ATOMIC_RELEASE);
}

VirtualTime::~VirtualTime()
{
    __atomic_store_n(&isVirtual, false, __ATOMIC_RELEASE);
}

double VirtualTime::getTime()
{
    std::lock_guard const guard(getState().mutex);
    return static_cast<double>(getState().now) / 1e9;
}

void VirtualTime::pass(double seconds)
{
    passTo(getTime() + seconds);
}

void VirtualTime::passTo(double time)
{
    std::lock_guard const guard(getState().mutex);
    getState().now = std::max(getState().now, static_cast<LONGLONG>(std::ceil(time * 1e9)));
    getState().changed.notify_all();
}

void VirtualTime::awaitAsleep(int nb)
{
    State &state = getState();
    std::unique_lock guard(state.mutex);
    state.changed.wait(guard, [&] {
        return std::count_if(
                   state.sleepers.begin(), state.sleepers.end(),
                   [&](Sleeper const &sleeper) { return !sleeper.hasReason(state.now); }) == nb;
    });
}

double VirtualTime::getFirstDeadline()
{
    State &state = getState();
    std::lock_guard const guard(state.mutex);
    LONGLONG first = NEVER;
    for (Sleeper const &sleeper : state.sleepers)
        first = std::min(first, sleeper.deadline);
    return first == NEVER ? std::numeric_limits<double>::infinity()
                          : static_cast<double>(first) / 1e9;
}

int VirtualTime::getNbSleeps()
{
    std::lock_guard const guard(getState().mutex);
    return getState().nbSleeps;
}

} // namespace ZvTest

BOOL wrapReadClock(LARGE_INTEGER *now)
{
    if (!ZvTest::getIsVirtual()) {
        now->QuadPart = ZvTest::readRealClock();
        return TRUE;
    }
    std::lock_guard const guard(ZvTest::getState().mutex);
    now->QuadPart = ZvTest::getState().now;
    return TRUE;
}

DWORD realGetTime() ZV_REAL("_ZN10ZvPlatform11timeGetTimeEv");
DWORD wrapGetTime() ZV_WRAP("_ZN10ZvPlatform11timeGetTimeEv");
DWORD wrapGetTime()
{
    if (!ZvTest::getIsVirtual())
        return realGetTime();
    std::lock_guard const guard(ZvTest::getState().mutex);
    return static_cast<DWORD>(ZvTest::getState().now / ZvTest::MILLISECOND);
}

BOOL realWait(void volatile *, void *, SIZE_T, DWORD)
    ZV_REAL("_ZN10ZvPlatform13WaitOnAddressEPVvPvmj");
BOOL wrapWait(void volatile *, void *, SIZE_T, DWORD)
    ZV_WRAP("_ZN10ZvPlatform13WaitOnAddressEPVvPvmj");
BOOL wrapWait(void volatile *address, void *compare, SIZE_T size, DWORD milliseconds)
{
    if (!ZvTest::getIsVirtual() || size != sizeof(std::uint32_t))
        return realWait(address, compare, size, milliseconds);
    ZvTest::State &state = ZvTest::getState();
    std::unique_lock guard(state.mutex);
    LONGLONG const deadline = milliseconds == INFINITE
                                  ? ZvTest::NEVER
                                  : state.now + LONGLONG{milliseconds} * ZvTest::MILLISECOND;
    auto const me = state.sleepers.insert(
        state.sleepers.end(), {address, *static_cast<std::uint32_t *>(compare), deadline});
    ++state.nbSleeps;
    state.changed.notify_all();
    state.changed.wait(guard, [&] { return me->hasReason(state.now); });
    bool const isLate = state.now >= deadline;
    state.sleepers.erase(me);
    state.changed.notify_all();
    if (isLate)
        ::SetLastError(ERROR_TIMEOUT);
    return isLate ? FALSE : TRUE;
}

void realWake(void *) ZV_REAL("_ZN10ZvPlatform16WakeByAddressAllEPv");
void wrapWake(void *) ZV_WRAP("_ZN10ZvPlatform16WakeByAddressAllEPv");
void wrapWake(void *address)
{
    realWake(address);
    std::lock_guard const guard(ZvTest::getState().mutex);
    ZvTest::getState().changed.notify_all();
}
