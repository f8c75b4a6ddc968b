// Gate at which a fixed number of threads meet (applications).
#pragma once

#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkNamedSema.h"
#include "resmgt/locks/lkPulse.h"
#include "zvbase/objPtr.h"
#include "zvbase/platform/shared.h"

#include <iosfwd>

namespace Zv {

/// Lets a fixed number of threads meet. Each thread calls `ready`, and all continue when the last
/// one has arrived.
///
///     Zv::LkGate gate("start", 1, false);
///     gate.ready(); // each of the threads does this
///
/// A gate can have a keeper: a further thread that acts while all the others wait at the gate. The
/// keeper does so in the scope of an `LkGateKeeperGuard`. The threads continue when the scope ends.
///
/// **Limits**: a gate opens once and for all. In later cycles `ready` counts the arrivals but does
/// not block.
///
/// **Threads**: thread-safe. Before you destroy a gate, every call of `ready`, `observeGateReady`
/// and `isGateReady` must have returned, and every `LkGateKeeperGuard` must be gone. Join all
/// threads first: when `ready` returns in one thread, the others still use the gate.
///
/// **Owns**: nothing. The name is not copied and must exist as long as the gate.
class ZVRESMGT_EXPORT LkGate
{
public:
    /// Builds a gate for `numGatees` threads. **Throws** `AssertionFailed` if that is not above 0.
    LkGate(char const *name, int numGatees, bool useGateKeeper);
    /// Takes the gate over from `source`. No thread may wait at `source`, and it must not be used
    /// again except to be destroyed.
    LkGate(LkGate &source);
    /// As from an lvalue.
    LkGate(LkGate &&source);
    LkGate &operator=(LkGate const &) = delete;

    /// Arrives at the gate. **Blocks** until the gate opens. **Throws** `AssertionFailed` if more
    /// than `numGatees` threads arrive, and if the wait fails. After a failed wait the arrival is
    /// no longer counted, unless the keeper has arrived already.
    void ready();
    /// Returns true if all threads have arrived and the keeper has not arrived yet. Never blocks.
    /// **Throws** `RCEx::ExNullPtr` if the gate has no keeper.
    bool isGateReady();
    /// **Blocks** until all threads have arrived. Use it only on a gate with a keeper: without one
    /// the threads leave at the moment when the last one arrives. After the keeper has released the
    /// threads, the call waits for the next cycle.
    void observeGateReady();
    char const *getName() const noexcept { return _name; }
    /// Writes what the gate was built with and its state, in three lines.
    void dump(std::ostream &stream) const;

private:
    friend class LkGateKeeperGuard;

    void waitGateReady();
    void releaseGate();
    void open();
    void withdraw();
    bool isKeeperCalled() const;

    bool _useGateKeeper;
    int _numGatees;
    ZvPlatform::Shared<int> _numReady; // written under `_lock`
    unsigned _nbOpenings;              // under `_lock`
    ObjPtr<LkMutex> _lock;
    ObjPtr<LkPulse> _gate;
    ObjPtr<LkPulse> _observers;
    ObjPtr<LkUnnamedSema> _gateKeeper;
    char const *_name;
};

/// Scope in which the keeper of a gate acts while all threads wait at the gate.
///
///     void keep(Zv::LkGate &gate)
///     {
///         Zv::LkGateKeeperGuard const guard(gate);
///         // All threads wait at the gate here.
///     }
///
/// **Threads**: at most one keeper at a time.
///
/// **Owns**: nothing. The gate must exist longer than the guard.
class ZVRESMGT_EXPORT LkGateKeeperGuard
{
public:
    /// **Blocks** until all threads have arrived. **Throws** `AssertionFailed` if the gate has no
    /// keeper.
    [[nodiscard]] explicit LkGateKeeperGuard(LkGate &gate) : _gate(gate) { _gate.waitGateReady(); }
    LkGateKeeperGuard(LkGateKeeperGuard const &) = delete;
    LkGateKeeperGuard &operator=(LkGateKeeperGuard const &) = delete;
    /// Opens the gate.
    ~LkGateKeeperGuard() noexcept(false) { _gate.releaseGate(); }

private:
    LkGate &_gate;
};

} // namespace Zv
