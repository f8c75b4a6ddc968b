// The condition variable.
#pragma once

#include "resmgt/locks/lkCondVarAttr.h"
#include "resmgt/locks/lkCondVarWindows.h"
#include "resmgt/locks/lkWaitable.h"

namespace Zv {

/// A condition variable: a signal that nobody waits for is lost. Where it shall be kept, take an `LkPulse`.
///
/// While a thread waits, `isLocked` of the mutex is false as long as nobody else takes it. The name is not copied.
///
/// A thread that is killed inside a wait (`MtThread::cancel`) stays counted among the waiters: the next `broadcast`
/// waits for it for ever, and each `signal` may be kept for it. Such a thread waits on an `LkPulse`.
class ZVRESMGT_EXPORT LkCondVar : public LkWaitable
{
public:
    explicit LkCondVar(char const *name) : LkCondVar(name, LkCondVarAttr::getDefaultAttr()) {}
    LkCondVar(char const *name, LkCondVarAttr const &) : _imp(name) {}
    ~LkCondVar() noexcept(false) override;

    /// Wakes one waiter. Never blocks. With or without the mutex.
    void signal() const { _imp.signal(); }
    /// Wakes all who wait, and returns when the last of them is on its way to its mutex: they need not get it before.
    /// With or without the mutex; a second broadcaster, and whoever comes to wait meanwhile, waits for the first.
    void broadcast() const { _imp.broadcast(); }
    char const *getName() const noexcept { return _imp.getName(); }
    /// The name.
    void dump(std::ostream &stream) const { _imp.dump(stream); }

protected:
    void performWait(LkMutex const &mutex) const override;
    bool performTimedWait(LkMutex const &mutex, double seconds) const override;

private:
    LkCondVarWindows _imp;
};

} // namespace Zv
