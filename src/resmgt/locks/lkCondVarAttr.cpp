#include "resmgt/locks/lkCondVarAttr.h"

#include "resmgt/locks/lkSingleton.imp.h"

namespace Zv {

LkCondVarAttrWindows::~LkCondVarAttrWindows() noexcept(false) = default;

LkCondVarAttr::~LkCondVarAttr() noexcept(false) = default;

class DefaultLkCondVarAttr : public LkCondVarAttr
{
public:
    DefaultLkCondVarAttr() : LkCondVarAttr("DefaultLkCondVarAttr") {}
};

ZV_DEFINE_SINGLETON(DefaultLkCondVarAttr, DefaultLkCondVarAttr);

LkCondVarAttr const &LkCondVarAttr::getDefaultAttr()
{
    return LkSingleton<DefaultLkCondVarAttr>::getInstance();
}

} // namespace Zv
