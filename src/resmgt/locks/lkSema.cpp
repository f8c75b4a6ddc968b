#include "resmgt/locks/lkSema.h"

#include "zvbase/platform/shared.h"

namespace Zv {

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
    _state.fetch_add(ONE_WAITER, ZvPlatform::Order::RELAXED);
    bool isOurs = tryWait();
    try {
        while (!isOurs && wait(guard))
            isOurs = tryWait();
    } catch (...) {
        // This waiter may have used up a signal that another one needs.
        std::uint64_t const state = _state.fetch_sub(1, ZvPlatform::Order::RELAXED) - 1;
        if (hasCount(state) && hasWaiters(state))
            _nonZero.signal();
        throw;
    }
    _state.fetch_sub(1, ZvPlatform::Order::RELAXED);
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
    std::uint64_t state = _state.load(ZvPlatform::Order::RELAXED);
    while (hasCount(state))
        if (_state.compare_exchange_strong(state, state - ONE_POST, ZvPlatform::Order::ACQUIRE,
                                           ZvPlatform::Order::RELAXED))
            return true;
    return false;
}

void LkSema::post()
{
    std::uint64_t state = _state.load(ZvPlatform::Order::RELAXED);
    while (!hasWaiters(state))
        if (_state.compare_exchange_strong(state, state + ONE_POST, ZvPlatform::Order::RELEASE,
                                           ZvPlatform::Order::RELAXED))
            return;
    LkGuard const guard(_lock);
    state = _state.fetch_add(ONE_POST, ZvPlatform::Order::RELEASE) + ONE_POST;
    if (hasCount(state) && hasWaiters(state))
        _nonZero.signal();
}

bool LkSema::isCountNonZero() const
{
    return !hasCount(_state.load(ZvPlatform::Order::RELAXED));
}

} // namespace Zv
