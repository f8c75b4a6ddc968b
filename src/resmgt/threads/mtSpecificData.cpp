#include "resmgt/threads/mtSpecificData.h"

#include "platform/services.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/threads/mtEx.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"

#include <cstdint>
#include <iterator>

namespace Zv {

/// The part of thread-specific data that depends on the platform.
class MtOpaqueDataImp
{
public:
    MtOpaqueDataImp() = default;
    MtOpaqueDataImp(MtOpaqueDataImp const &) = delete;
    MtOpaqueDataImp &operator=(MtOpaqueDataImp const &) = delete;
    virtual ~MtOpaqueDataImp() noexcept(false) = default;

    virtual void *getSpecific() const = 0;
    virtual void setSpecific(void *value) const = 0;
};

/// A slot of the platform's services.
class MtOpaqueDataWindows final : public MtOpaqueDataImp
{
public:
    MtOpaqueDataWindows() : _tlsIndex(::TlsAlloc()) { ZV_SYS_ASSERT(_tlsIndex != 0xFFFFFFFF); }
    ~MtOpaqueDataWindows() noexcept(false) override
    {
        ZV_SYS_ASSERT_IN_DESTRUCTOR(::TlsFree( _tlsIndex ) == TRUE);
    }

    void *getSpecific() const override { return ::TlsGetValue(_tlsIndex); }
    void setSpecific(void *data) const override
    {
        ZV_SYS_ASSERT(::TlsSetValue( _tlsIndex, data ) != 0);
    }

private:
    std::uint32_t _tlsIndex;
};

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
