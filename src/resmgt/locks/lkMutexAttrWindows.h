// The platform form of LkMutexAttr.
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkMutexAttrTypes.h"

#include <iosfwd>

namespace Zv {

/// Attributes of a mutex on a platform without priority protocols. See LkMutexAttr.
class ZVRESMGT_EXPORT LkMutexAttrWindows
{
public:
    explicit LkMutexAttrWindows(char const *name);
    virtual ~LkMutexAttrWindows() noexcept(false);

    LkMutexAttrTypes::PrioProtocol getPrioProtocol() const
    {
        return LkMutexAttrTypes::UNIMPLEMENTED;
    }
    int getPrioCeiling() const { return 0; }
    void setPrioProtocol(LkMutexAttrTypes::PrioProtocol, int) {}
    static bool isSetPrioProtocolImplemented() { return false; }
    char const *getName() const noexcept { return _name; }
    void dump(std::ostream &stream) const;

private:
    char const *_name;
};

} // namespace Zv
