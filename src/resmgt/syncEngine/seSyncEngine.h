// The sources of beats and their clients.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkLock.h"
#include "resmgt/locks/lkSingleton.h"
#include "resmgt/syncEngine/seClientThread.h"
#include "resmgt/syncEngine/seSourceProtocol.h"
#include "zvbase/containers.h"
#include "zvbase/objPtr.h"
#include "zvbase/threadAnnotations.h"

#include <cstdint>
#include <iosfwd>

namespace Zv {

class MtThread;
class MtThreadFactory;
class SeGeneratorThread;

/// Paces threads by sources of beats: one generator thread for each source, told by its address, wakes all clients of
/// that source at each beat. A singleton, made at first use; it makes threads only when somebody wants beats.
///
///     ObjPtr<SeClientThread> meter(new Meter);
///     SeClientThread * const added = meter.get();
///     SeSyncEngine::getInstance().addClient("meter", meter, SeSourceClock::getInstance(), 4);
///     ...
///     ObjPtr<SeClientThread> back(SeSyncEngine::getInstance().removeClient(added));
///
/// A source must outlive its generator. Any thread may call these operations, except the threads of clients and
/// generators. Each operation blocks while another thread is in one of them.
class ZVRESMGT_EXPORT SeSyncEngine
{
public:
    static SeSyncEngine &getInstance();

    SeSyncEngine(SeSyncEngine const &) = delete;
    SeSyncEngine &operator=(SeSyncEngine const &) = delete;

    /// Takes the client and runs it on a thread of that name, at each `divisor`-th beat of the source; `divisor` is 1
    /// or more. Its thread runs when this returns, and sleeps until beats come. Asserts "clientThreadIter ==
    /// _clients.end()": the client is not there yet. Null throws `RCEx::ExNullPtr`. The client stays with the caller in
    /// these two cases; where its thread cannot be made or started, it is destroyed.
    void addClient(LiString const &name, ObjPtr<SeClientThread> &client, SeSourceProtocol &source,
                   std::int32_t divisor);
    /// Ends the client's thread, which may take until the next beat, and gives the client back; it may be added again.
    /// Asserts that it is there. By design, only clients of the generator that was made first can be removed; those of
    /// others go with `stop`.
    ObjPtrRet<SeClientThread> removeClient(SeClientThread *client);
    /// Whether the source has beaten since its generator was started. Starts one where there is none.
    bool isSyncGenBeating(SeSourceProtocol &source);
    /// Blocks until the source has beaten once; for good where it never does. Starts a generator where there is none.
    void waitSyncGenBeating(SeSourceProtocol &source);
    /// Ends all generators, after their clients, which are destroyed on this thread under the engine's lock. Each
    /// source has to beat once more for that. The engine may be used again.
    void stop();
    /// "generators:" and the generators' threads, a line for each.
    void dump(std::ostream &stream) const;

private:
    friend class LkSingleton<SeSyncEngine>;
    friend struct LkSingletonCreator<SeSyncEngine>;
    friend class SeSyncEngineTest;

    SeSyncEngine();
    ~SeSyncEngine() noexcept(false);

    SeGeneratorThread *findSyncGenNoLock(SeSourceProtocol const &source) const ZV_REQUIRES(_lock);
    SeGeneratorThread *addSyncGenNoLock(SeSourceProtocol &source) ZV_REQUIRES(_lock);
    SeGeneratorThread *getSyncGenNoLock(SeSourceProtocol &source) ZV_REQUIRES(_lock);

    List<MtThread *> _generators ZV_GUARDED_BY(_lock);
    LkLock _lock;
    MtThreadFactory &_threadFactory;
};

ZV_DECLARE_SINGLETON(SeSyncEngine);

/// Calls `dump`.
ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &stream, SeSyncEngine const &engine);

} // namespace Zv
