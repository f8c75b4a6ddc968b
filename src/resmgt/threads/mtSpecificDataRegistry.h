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
    /// Runs the deleters without a lock. If a deleter throws, the values behind it stay, for the next call.
    void removeSpecificData();
    /// The calling thread has no value in `data` any more. For `MtOpaqueData`.
    void forgetSpecificData(MtOpaqueData const *data);
    /// `data` is being destroyed; whatever values other threads have in it are lost. For `MtOpaqueData`.
    void forgetAll(MtOpaqueData const *data);

private:
    friend class LkSingleton<MtSpecificDataRegistry>;
    friend struct LkSingletonCreator<MtSpecificDataRegistry>;
    friend class MtSpecificDataRegistryTest;

    MtSpecificDataRegistry();
    ~MtSpecificDataRegistry();

    void forgetFormerThread() ZV_REQUIRES(_lock);
    /// Takes the calling thread's first entry out; false where there is none.
    bool takeFirst(MtOpaqueData const *&data);

    LkRecLock _lock;
    std::multimap<LkThreadId, MtOpaqueData const *> _entries ZV_GUARDED_BY(_lock);
};

ZV_DECLARE_SINGLETON(MtSpecificDataRegistry);

} // namespace Zv
