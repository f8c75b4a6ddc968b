#include "resmgt/locks/lkSema.h"

#include "zvbase/platform/interlocked.h"

namespace Zv {

using namespace ZvPlatform::Interlocked;

namespace {

constexpr std::uint64_t ONE_WAITER = 1;
constexpr std::uint64_t ONE_POST = std::uint64_t{1} << 32;

bool hasCount(std::uint64_t state)
{
    return state >= ONE_POST;
}
bool hasWaiters(std::uint64_t state)
{
    return state % ONE_POST != 0;
}

} // namespace

LkSema::LkSema(char const *name, unsigned count, LkMutexAttr const &mutexAttr,
               LkCondVarAttr const &condVarAttr)
    : _name(name),
      _state(count * ONE_POST),
      _lock("LkSema lock", mutexAttr),
      _nonZero("LkSema nonZero", condVarAttr)
{}

/// Waits until the count is above 0 and subtracts 1. Returns false if `wait` does, which has to wait
/// for a signal.
template <class Wait>
bool LkSema::waitForPost(Wait wait)
{
    LkGuard const guard(_lock);
    // A post that finds a waiter takes the lock. An earlier one has left its count.
    add(_state, ONE_WAITER);
    bool isOurs = tryWait();
    try {
        while (!isOurs && wait(guard))
            isOurs = tryWait();
    } catch (...) {
        // This waiter may have used up a signal that another one needs.
        std::uint64_t const state = decrement(_state);
        if (hasCount(state) && hasWaiters(state))
            _nonZero.signal();
        throw;
    }
    decrement(_state);
    return isOurs;
}

void LkSema::wait()
{
    if (!tryWait())
        waitForPost([this](auto &guard) { return _nonZero.wait(guard), true; });
}

bool LkSema::timedWait(double seconds)
{
    return tryWait() ||
           waitForPost([&](auto &guard) { return _nonZero.timedWait(guard, seconds); });
}

bool LkSema::tryWait()
{
    std::uint64_t state = loadAcquire(_state);
    while (hasCount(state))
        if (compareExchange(_state, state, state - ONE_POST))
            return true;
    return false;
}

void LkSema::post()
{
    std::uint64_t state = loadAcquire(_state);
    while (!hasWaiters(state))
        if (compareExchange(_state, state, state + ONE_POST))
            return;
    LkGuard const guard(_lock);
    state = add(_state, ONE_POST);
    if (hasCount(state) && hasWaiters(state))
        _nonZero.signal();
}

bool LkSema::isCountNonZero() const
{
    return !hasCount(loadAcquire(_state));
}

} // namespace Zv
