// What each thread has to free when it ends.
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkRecLock.h"
#include "resmgt/locks/lkSingleton.h"
#include "resmgt/locks/lkThreadId.h"
#include "zvbase/threadAnnotations.h"

#include <map>

namespace Zv {

class MtOpaqueData;

/// The values of thread-specific data, by thread. Threads of the library free theirs when they end. A singleton; all
/// operations may be called by any thread and concern the calling thread's values.
class ZVRESMGT_EXPORT MtSpecificDataRegistry
{
public:
    static MtSpecificDataRegistry &getInstance();

    MtSpecificDataRegistry(MtSpecificDataRegistry const &) = delete;
    MtSpecificDataRegistry &operator=(MtSpecificDataRegistry const &) = delete;

    /// The calling thread has a value in `data`. For `MtOpaqueData::performCreate`. Asserts "data".
    void addSpecificData(MtOpaqueData const *data);
    /// Destroys the calling thread's values, in the order in which they were made, those too that are made meanwhile.
    void removeSpecificData();
    /// Drops what a former thread of the calling thread's number has left, which nobody can destroy any more. For a
    /// thread that begins.
    void forgetFormerThread();
    /// The calling thread has no value in `data` any more. For `MtOpaqueData`.
    void forgetSpecificData(MtOpaqueData const *data);

private:
    friend class LkSingleton<MtSpecificDataRegistry>;
    friend struct LkSingletonCreator<MtSpecificDataRegistry>;
    friend class MtSpecificDataRegistryTest;

    MtSpecificDataRegistry();
    ~MtSpecificDataRegistry();

    /// Takes the calling thread's first entry out; false where there is none.
    bool takeFirst(MtOpaqueData const *&data);

    LkRecLock _lock;
    std::multimap<LkThreadId, MtOpaqueData const *> _entries ZV_GUARDED_BY(_lock);
};

ZV_DECLARE_SINGLETON(MtSpecificDataRegistry);

} // namespace Zv
