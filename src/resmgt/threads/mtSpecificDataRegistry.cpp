#include "resmgt/threads/mtSpecificDataRegistry.h"

#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/threads/mtOpaqueData.h"
#include "zvbase/failures.h"

#include <iterator>

namespace Zv {

ZV_DEFINE_SINGLETON(MtSpecificDataRegistry, MtSpecificDataRegistry);

MtSpecificDataRegistry::MtSpecificDataRegistry() : _lock("MtSpecificDataRegistry") {}

MtSpecificDataRegistry::~MtSpecificDataRegistry() = default;

// A thread that does not free its values leaves its entries, and its number to a thread to come.
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
    LkGuard<LkRecLock const> const guard(_lock);
    forgetFormerThread();
    _entries.emplace(LkThreadId(LkThreadId::CURRENT_THREAD), data);
}

void MtSpecificDataRegistry::removeSpecificData()
{
    // A deleter may add an entry, so the search starts again each time. It runs without the lock: it belongs to
    // somebody else, who may take locks of his own.
    MtOpaqueData const *data = nullptr;
    while (takeFirst(data)) {
        ZV_ASSERT(data);
        ZV_ASSERT(!data->isNull());
        data->performDelete();
    }
}

void MtSpecificDataRegistry::forgetSpecificData(MtOpaqueData const *data)
{
    LkGuard<LkRecLock const> const guard(_lock);
    forgetFormerThread();
    auto [entry, end] = _entries.equal_range(LkThreadId(LkThreadId::CURRENT_THREAD));
    while (entry != end)
        entry = entry->second == data ? _entries.erase(entry) : std::next(entry);
}

void MtSpecificDataRegistry::forgetAll(MtOpaqueData const *data)
{
    LkGuard<LkRecLock const> const guard(_lock);
    std::erase_if(_entries, [data](auto const &entry) { return entry.second == data; });
}

bool MtSpecificDataRegistry::takeFirst(MtOpaqueData const *&data)
{
    LkThreadId const self(LkThreadId::CURRENT_THREAD);
    LkGuard<LkRecLock const> const guard(_lock);
    forgetFormerThread();
    auto const first = _entries.lower_bound(self);
    if (first == _entries.end() || !(first->first == self))
        return false;
    data = first->second;
    _entries.erase(first);
    return true;
}

} // namespace Zv
