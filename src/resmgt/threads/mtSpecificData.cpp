#include "resmgt/threads/mtSpecificData.h"

#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/threads/mtEx.h"
#include "resmgt/threads/mtOpaqueDataWindows.private.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"

#include <iterator>

namespace Zv {

// ---- MtOpaqueData

MtOpaqueData::MtOpaqueData(char const *name, void (*deleter)(void *))
    : _imp(new MtOpaqueDataWindows), _name(name), _deleter(deleter)
{}

MtOpaqueData::~MtOpaqueData() noexcept(false)
{
    ObjPtr<MtOpaqueDataImp> const imp(_imp); // deleted last, also if a deleter throws
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
        FirstFailure failure;
        failure.attempt([this, value] { _deleter(value); }); // may still read the value
        setSpecific(nullptr);
        failure.rethrowAlways();
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

// ---- MtSpecificDataRegistry

ZV_DEFINE_SINGLETON(MtSpecificDataRegistry, MtSpecificDataRegistry);

MtSpecificDataRegistry::MtSpecificDataRegistry() : _lock("MtSpecificDataRegistry") {}

MtSpecificDataRegistry::~MtSpecificDataRegistry() = default;

// A thread that ended without removing its values leaves its entries. A later thread may get the
// same number.
void MtSpecificDataRegistry::forgetFormerThread()
{
    static thread_local bool isKnown = false;
    if (!isKnown) {
        isKnown = true;
        _entries.erase(LkThreadId(LkThreadId::CURRENT_THREAD));
    }
}

void MtSpecificDataRegistry::addSpecificData(MtOpaqueData const *data)
{
    ZV_ASSERT(data);
    LkGuard const guard(_lock);
    forgetFormerThread();
    _entries.emplace(LkThreadId(LkThreadId::CURRENT_THREAD), data);
}

void MtSpecificDataRegistry::removeSpecificData()
{
    // A deleter may add an entry, so the search begins anew each time. The deleter is foreign code
    // and may acquire other locks, so it runs without this one.
    while (MtOpaqueData const * const data = takeFirst()) {
        ZV_ASSERT(!data->isNull());
        data->performDelete();
    }
}

void MtSpecificDataRegistry::forgetSpecificData(MtOpaqueData const *data)
{
    LkGuard const guard(_lock);
    forgetFormerThread();
    auto [entry, end] = _entries.equal_range(LkThreadId(LkThreadId::CURRENT_THREAD));
    while (entry != end)
        entry = entry->second == data ? _entries.erase(entry) : std::next(entry);
}

void MtSpecificDataRegistry::forgetAll(MtOpaqueData const *data)
{
    LkGuard const guard(_lock);
    std::erase_if(_entries, [data](auto const &entry) { return entry.second == data; });
}

MtOpaqueData const *MtSpecificDataRegistry::takeFirst()
{
    LkThreadId const self(LkThreadId::CURRENT_THREAD);
    LkGuard const guard(_lock);
    forgetFormerThread();
    auto const first = _entries.lower_bound(self);
    if (first == _entries.end() || !(first->first == self))
        return nullptr;
    MtOpaqueData const * const data = first->second;
    _entries.erase(first);
    return data;
}

} // namespace Zv
