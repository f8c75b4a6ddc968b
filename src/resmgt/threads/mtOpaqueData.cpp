#include "resmgt/threads/mtOpaqueData.h"

#include "resmgt/threads/mtEx.h"
#include "resmgt/threads/mtOpaqueDataWindows.private.h"
#include "resmgt/threads/mtSpecificDataRegistry.h"
#include "zvbase/failures.h"
#include "zvbase/objPtr.h"

namespace Zv {

MtOpaqueDataImp::~MtOpaqueDataImp() noexcept(false) = default;

MtOpaqueData::MtOpaqueData(char const *name, void (*deleter)(void *))
    : _imp(new MtOpaqueDataWindows), _name(name), _deleter(deleter)
{}

MtOpaqueData::~MtOpaqueData() noexcept(false)
{
    ObjPtr<MtOpaqueDataImp> const imp(_imp); // goes last, and also when a deleter throws
    MtSpecificDataRegistry::getInstance().forgetAll(this);
    performDelete();
}

bool MtOpaqueData::isNull() const
{
    return !getSpecific();
}

void *MtOpaqueData::getPointee() const
{
    void *value = getSpecific();
    if (!value)
        value = performCreate();
    if (!value)
        ZV_THROW(MtEx::ExNoContent, "MtOpaqueData", _name);
    return value;
}

void MtOpaqueData::performDelete() const
{
    if (void * const value = getSpecific()) {
        MtSpecificDataRegistry::getInstance().forgetSpecificData(this);
        try {
            _deleter(value); // which still finds the value here
        } catch (...) {
            setSpecific(nullptr);
            throw;
        }
        setSpecific(nullptr);
    }
}

void *MtOpaqueData::getSpecific() const
{
    return _imp->getSpecific();
}

void MtOpaqueData::setSpecific(void *value) const
{
    _imp->setSpecific(value);
}

} // namespace Zv
