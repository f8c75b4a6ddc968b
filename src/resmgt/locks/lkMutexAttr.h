// Attributes of a mutex.
#pragma once

#include "resmgt/locks/lkMutexAttrWindows.h"

namespace Zv {

/// Attributes that a mutex is built with. A mutex keeps nothing of them; one that is built without takes the default
/// ones. The name is not copied.
class ZVRESMGT_EXPORT LkMutexAttr
{
public:
    explicit LkMutexAttr(char const *name) : _imp(name) {}
    virtual ~LkMutexAttr() noexcept(false);

    /// The attributes of mutexes that are built without, named "DefaultLkMutexAttr". Any thread may call it.
    static LkMutexAttr const &getDefaultAttr();

    LkMutexAttrTypes::PrioProtocol getPrioProtocol() const { return _imp.getPrioProtocol(); }
    int getPrioCeiling() const { return _imp.getPrioCeiling(); }
    /// No effect where `isSetPrioProtocolImplemented` is false. The ceiling counts for `PROTECT` only.
    void setPrioProtocol(LkMutexAttrTypes::PrioProtocol protocol, int ceiling)
    {
        _imp.setPrioProtocol(protocol, ceiling);
    }
    static bool isSetPrioProtocolImplemented()
    {
        return LkMutexAttrWindows::isSetPrioProtocolImplemented();
    }
    char const *getName() const noexcept { return _imp.getName(); }
    /// Name, " prot ", protocol, " ceil ", ceiling.
    void dump(std::ostream &stream) const { _imp.dump(stream); }

private:
    LkMutexAttrWindows _imp;
};

} // namespace Zv
