#include "resmgt/locks/lkGate.h"

#include "zvbase/failures.h"
#include "zvbase/platform/shared.h"

#include <ostream>

namespace Zv {

namespace {

// The texts of the conditions do not say how the number is read, so the caller passes a copy.
void checkRoom(int _numReady, int _numGatees)
{
    ZV_ASSERT(_numReady < _numGatees);
}

void checkComplete(int _numReady, int _numGatees)
{
    ZV_ASSERT(_numReady == _numGatees);
}

} // namespace

LkGate::LkGate(char const *name, int numGatees, bool useGateKeeper)
    : _useGateKeeper(useGateKeeper),
      _numGatees(numGatees),
      _numReady(0),
      _nbOpenings(0),
      _lock(makeObj<LkMutex>("GateInternal")),
      _gate(makeObj<LkPulse>("Gate", LkPulse::WAKE_ALL)),
      _observers(makeObj<LkPulse>("GateObservers", LkPulse::WAKE_ALL)),
      _gateKeeper(useGateKeeper ? new LkUnnamedSema("GateKeeper", 0) : nullptr),
      _name(name)
{
    // A semaphore without a handle would let the keeper through at once.
    ZV_ASSERT(!useGateKeeper || _gateKeeper->getErrno() == 0);
    ZV_ASSERT(numGatees > 0);
}

LkGate::LkGate(LkGate &source)
    : _useGateKeeper(source._useGateKeeper),
      _numGatees(source._numGatees),
      _numReady(source._numReady.load(ZvPlatform::Order::RELAXED)),
      _nbOpenings(source._nbOpenings),
      _lock(source._lock),
      _gate(source._gate),
      _observers(source._observers),
      _gateKeeper(source._gateKeeper),
      _name(source._name)
{}

LkGate::LkGate(LkGate &&source) : LkGate(source) {}

void LkGate::ready()
{
    checkRoom(_numReady.load(ZvPlatform::Order::RELAXED), _numGatees);
    LkGuard const guard(*_lock);
    _numReady.store(_numReady.load(ZvPlatform::Order::RELAXED) + 1, ZvPlatform::Order::RELAXED);
    if (_numReady.load(ZvPlatform::Order::RELAXED) == _numGatees) {
        _observers->pulse();
        if (!_useGateKeeper) {
            open();
            return;
        }
        _gateKeeper->post();
    }
    unsigned const nbOpenings = _nbOpenings;
    try {
        _gate->wait(guard);
    } catch (...) {
        if (nbOpenings == _nbOpenings)
            withdraw();
        throw;
    }
}

/// Lets the threads of this cycle continue.
void LkGate::open()
{
    _numReady.store(0, ZvPlatform::Order::RELAXED);
    ++_nbOpenings;
    _gate->pulse();
}

/// Takes back an arrival. If the keeper has come already, the arrival stays counted, because the
/// gate is about to open.
void LkGate::withdraw()
{
    if (_numReady.load(ZvPlatform::Order::RELAXED) != _numGatees || _gateKeeper->tryWait())
        _numReady.store(_numReady.load(ZvPlatform::Order::RELAXED) - 1, ZvPlatform::Order::RELAXED);
}

bool LkGate::isGateReady()
{
    return isKeeperCalled();
}

/// Takes the keeper's semaphore for a moment. The lock keeps a thread that withdraws from taking
/// its absence for the arrival of the keeper.
bool LkGate::isKeeperCalled() const
{
    LkGuard const guard(*_lock);
    bool const isCalled = _gateKeeper->tryWait();
    if (isCalled)
        _gateKeeper->post();
    return isCalled;
}

void LkGate::observeGateReady()
{
    LkGuard const guard(*_lock);
    while (_numReady.load(ZvPlatform::Order::RELAXED) != _numGatees)
        _observers->waitNextPulse(guard);
}

void LkGate::waitGateReady()
{
    ZV_ASSERT(_useGateKeeper);
    _gateKeeper->wait();
    ZV_ASSERT((*_gateKeeper).tryWait() == false);
    // All threads wait until the gate is released.
    checkComplete(_numReady.load(ZvPlatform::Order::RELAXED), _numGatees);
}

void LkGate::releaseGate()
{
    ZV_ASSERT(_useGateKeeper);
    LkGuard const guard(*_lock);
    open();
}

void LkGate::dump(std::ostream &stream) const
{
    stream << _name << ": gatekeeper: " << (_useGateKeeper ? "yes" : "no")
           << ", num gatees: " << _numGatees << '\n'
           << "Current state: num ready: " << _numReady.load(ZvPlatform::Order::RELAXED) << '\n'
           << "Internal lock: ";
    _lock->dump(stream);
    stream << "Gate cond var: ";
    _gate->dump(stream);
    stream << "Gatekeeper sema: ";
    if (!_useGateKeeper) {
        stream << "unused";
        return;
    }
    stream << (isKeeperCalled() ? "set" : "not set");
}

} // namespace Zv
