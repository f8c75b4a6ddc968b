// Engine that paces threads by sources of beats (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkLock.h"
#include "resmgt/locks/lkSingleton.h"
#include "resmgt/syncEngine/seClientThread.h"
#include "resmgt/syncEngine/seSourceProtocol.h"
#include "zvbase/objPtr.h"
#include "zvbase/sequenceContainers.h"
#include "zvbase/testAccess.h"
#include "zvbase/threadAnnotations.h"

#include <cstdint>
#include <iosfwd>

namespace Zv {

class MtThread;
class MtThreadFactory;
class SeGeneratorThread;

/// Paces threads by sources of beats. Each source has one generator thread, which wakes all clients
/// of that source at each beat. Two sources are the same if they have the same address. The engine
/// is a singleton. It makes no thread before the first client is added, or a beat is asked for.
///
///     SeClientThread *startClient(ObjPtr<SeClientThread> &client)
///     {
///         SeClientThread * const added = client.get();
///         SeSyncEngine::getInstance().addClient("meter", client, SeSourceClock::getInstance(), 4);
///         return added;
///     }
///
///     void endClient(SeClientThread *added)
///     {
///         ObjPtr<SeClientThread> const client(SeSyncEngine::getInstance().removeClient(added));
///     }
///
/// **Threads**: thread-safe. The threads of clients and generators must not call it.
///
/// **Blocks**: each operation blocks while another thread is in one of them.
///
/// **Owns** its clients, but not its sources. A source must outlive its generator, which ends with
/// `stop`.
class ZVRESMGT_EXPORT SeSyncEngine
{
public:
    /// Returns the engine. It is made at the first call.
    static SeSyncEngine &getInstance();

    SeSyncEngine(SeSyncEngine const &) = delete;
    SeSyncEngine &operator=(SeSyncEngine const &) = delete;

    /// Takes the client, and runs it on a thread of that name at each `divisor`-th beat of the
    /// source. `divisor` must be 1 or more. When this returns, the thread runs, and waits for
    /// beats. If the client is added to this source already, the assertion "clientThreadIter ==
    /// _clients.end()" fails. If the client is null, throws `RCEx::ExNullPtr`. In these two cases
    /// the client stays with the caller. If the thread cannot be made or started, the client is
    /// destroyed, and the exception leaves this operation.
    void addClient(LiString const &name, ObjPtr<SeClientThread> &client, SeSourceProtocol &source,
                   std::int32_t divisor);
    /// Ends the client's thread and returns the client, which may be added again. Blocks until the
    /// thread has ended, which may take until the next beat. If the client is not there, an
    /// assertion fails. By design, only clients of the generator that was made first can be
    /// removed. Clients of other generators end with `stop`.
    [[nodiscard]] ObjPtrRet<SeClientThread> removeClient(SeClientThread *client);
    /// Returns true if the source has beaten since its generator was started. If the source has no
    /// generator, starts one.
    bool isSyncGenBeating(SeSourceProtocol &source);
    /// Blocks until the source has beaten once, without a limit. If the source has no generator,
    /// starts one. All other operations of the engine block meanwhile.
    void waitSyncGenBeating(SeSourceProtocol &source);
    /// Ends all clients, and then all generators. The clients are destroyed on the calling thread,
    /// under the engine's lock. Blocks until each source has beaten once more. The engine may be
    /// used again.
    void stop();
    /// Writes "generators:" and a line for each thread of a generator.
    void dump(std::ostream &stream) const;

private:
    friend class LkSingleton<SeSyncEngine>;
    friend struct LkSingletonCreator<SeSyncEngine>;
    friend struct TestAccess<SeSyncEngine>;

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
