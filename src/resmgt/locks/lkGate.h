// The gate.
#pragma once

#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"
#include "resmgt/locks/lkUnnamedSema.h"
#include "zvbase/objPtr.h"

#include <iosfwd>

namespace Zv {

/// Where a fixed number of threads meet: each calls `ready`, and all go on when the last has come. With a keeper they
/// go on only when he lets them: he acts while all of them stand at the gate, in the scope of an `LkGateKeeperGuard`.
///
/// A gate opens for good: from the second cycle on `ready` counts, but holds nobody. The name is not copied.
///
/// A gate may be destroyed only after every call of `ready`, `observeGateReady` and `isGateReady` has returned, and
/// every `LkGateKeeperGuard` has been destroyed. That one thread has come through is not enough: the others still use
/// the gate when `ready` of the last arrival returns. Join them first.
class ZVRESMGT_EXPORT LkGate
{
public:
    /// `numGatees` threads have to come; above 0, or an assertion fails.
    LkGate(char const *name, int numGatees, bool useGateKeeper);
    /// Takes the gate over. Nobody may stand at the source, and nobody uses it again.
    LkGate(LkGate &source);
    LkGate(LkGate &&source);
    LkGate &operator=(LkGate const &) = delete;

    /// Blocks until the gate opens. One arrival too many fails an assertion. If the wait itself fails, which is a failed
    /// assertion too, the arrival is no longer counted, unless the keeper has come already.
    void ready();
    /// Whether all stand at the gate and the keeper has not yet come. Never blocks. Only with a keeper: without, throws
    /// `RCEx::ExNullPtr`.
    bool isGateReady();
    /// Blocks until all stand at the gate. Only with a keeper: without, they are gone at the moment when they are all
    /// there. An observer that comes to look when the keeper has let them go waits for the next cycle.
    void observeGateReady();
    char const *getName() const noexcept { return _name; }
    /// The gate's make, then its state, in three lines.
    void dump(std::ostream &stream) const;

private:
    friend class LkGateKeeperGuard;

    void waitGateReady();
    void releaseGate();
    void open();
    void withdraw();

    bool _useGateKeeper;
    int _numGatees;
    int _numReady;        // written under _lock; an assertion and the dump read it without
    unsigned _nbOpenings; // under _lock
    ObjPtr<LkMutex> _lock;
    ObjPtr<LkPulse> _gate;
    ObjPtr<LkPulse> _observers;
    ObjPtr<LkUnnamedSema> _gateKeeper;
    char const *_name;
};

/// The keeper's scope: the constructor blocks until all stand at the gate, the destructor lets them go. On a gate
/// without a keeper the constructor fails an assertion. One keeper at a time.
class ZVRESMGT_EXPORT LkGateKeeperGuard
{
public:
    [[nodiscard]] explicit LkGateKeeperGuard(LkGate &gate) : _gate(gate) { _gate.waitGateReady(); }
    LkGateKeeperGuard(LkGateKeeperGuard const &) = delete;
    LkGateKeeperGuard &operator=(LkGateKeeperGuard const &) = delete;
    ~LkGateKeeperGuard() noexcept(false) { _gate.releaseGate(); }

private:
    LkGate &_gate;
};

} // namespace Zv
