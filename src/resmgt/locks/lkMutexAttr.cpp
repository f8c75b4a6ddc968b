#include "resmgt/locks/lkMutexAttr.h"

#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/locks/mtUtil.h"
#include "zvbase/failures.h"

#include <ostream>

namespace Zv {

char const *LkMutexAttrTypes::getText(PrioProtocol protocol)
{
    switch (protocol) {
    case UNIMPLEMENTED:
        return "UNIMPLEMENTED";
    case NONE:
        return "NONE";
    case INHERIT:
        return "INHERIT";
    case PROTECT:
        return "PROTECT";
    default:
        ZV_ABORT_PROGRAM();
    }
}

LkMutexAttrWindows::LkMutexAttrWindows(char const *name) : _name(name) {}

LkMutexAttrWindows::~LkMutexAttrWindows() noexcept(false) = default;

void LkMutexAttrWindows::dump(std::ostream &stream) const
{
    stream << _name << " prot " << LkMutexAttrTypes::getText(getPrioProtocol()) << " ceil "
           << getPrioCeiling();
}

LkMutexAttr::~LkMutexAttr() noexcept(false) = default;

class DefaultLkMutexAttr : public LkMutexAttr
{
public:
    DefaultLkMutexAttr() : LkMutexAttr("DefaultLkMutexAttr")
    {
        if (MtUtil::isFifoScheduledDefault())
            setPrioProtocol(LkMutexAttrTypes::INHERIT, 0);
    }
};

ZV_DEFINE_SINGLETON(DefaultLkMutexAttr, DefaultLkMutexAttr);

LkMutexAttr const &LkMutexAttr::getDefaultAttr()
{
    return LkSingleton<DefaultLkMutexAttr>::getInstance();
}

} // namespace Zv
