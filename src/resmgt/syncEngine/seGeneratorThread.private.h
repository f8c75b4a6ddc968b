// Thread that waits for the beats of a source and wakes its clients.
#pragma once

#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"
#include "resmgt/syncEngine/seClientThread.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/priority.h"
#include "zvbase/objPtr.h"
#include "zvbase/sequenceContainers.h"
#include "zvbase/threadAnnotations.h"

#include <cstdint>
#include <iosfwd>

namespace Zv {

class MtThread;
class MtThreadFactory;
class SeSourceProtocol;

/// The generator of one source. It publishes the source's count, sends a pulse on each beat, and
/// owns the threads of the clients. It goes through its states in their order, and is not used
/// again.
///
/// **Threads**: `addClient` and `removeClient` must be called by one thread at a time, and not
/// while the generator's thread is being destroyed. The engine's lock ensures that.
class SeGeneratorThread final : public MtThreadProtocol
{
public:
    enum SourceState
    {
        STARTING, ///< there was no beat yet
        BEATING,
        STOPPING, ///< the clients are being ended
        STOPPED
    };

    /// `source` must outlive the generator.
    explicit SeGeneratorThread(SeSourceProtocol &source);
    /// If the generator has run and is not stopped, an assertion fails.
    ~SeGeneratorThread() noexcept(false) override;

    void performAttach(MtThread *thread) override;
    void performDetach(MtThread *thread) override;
    void performExecute(MtThread *thread) override;
    /// Ends all clients, and destroys them without a lock. Blocks until the source has beaten once,
    /// unless the thread was never started. The thread itself ends with a further beat. If the
    /// destructor of a client throws, the other clients are ended all the same, and the first
    /// exception is thrown.
    void performStop(MtThread *thread) override;
    virtual void dump(std::ostream &stream) const;

    /// Makes a thread for the client and starts it. An assertion fails if the generator is stopped,
    /// or if it has the client already.
    void addClient(LiString const &name, ObjPtr<SeClientThread> &client, std::int32_t divisor,
                   MtThreadFactory &factory);
    /// Ends the client's thread and returns the client, even if the priority graph is invalid. An
    /// assertion fails if the generator is stopped, or if it does not have the client. While the
    /// generator is starting, this sends the pulse, and the first beat then sends one as well.
    [[nodiscard]] ObjPtrRet<SeClientThread> removeClient(SeClientThread *client);
    bool hasClient(SeClientThread const *client) const;

    bool isState(SourceState state) const;
    /// Blocks until the generator is in this state or in a later one.
    void waitState(SourceState state) const;
    bool isSource(SeSourceProtocol const &source) const { return _source == &source; }

private:
    using Guard = LkGuard<LkMutex const>;
    using Clients = List<MtThread *>;

    void setState(SourceState state) ZV_REQUIRES(_mutex);
    /// Sends the pulse, which wakes the clients.
    void pulse() ZV_REQUIRES(_mutex);
    Clients::const_iterator find(SeClientThread const *client) const ZV_REQUIRES(_mutex);

    Clients _clients ZV_GUARDED_BY(_mutex);
    SeSourceProtocol *_source;
    LkMutex _mutex;
    LkPulse _beat;
    std::uint32_t _count ZV_GUARDED_BY(_mutex) = 0;
    SourceState _sourceState ZV_GUARDED_BY(_mutex) = STARTING;
    LkPulse _stateChanged;
    ObjPtr<PriorityRelation> _rtRelation;
    Priority *_priority = nullptr;
    bool _hasPulsed ZV_GUARDED_BY(_mutex) = false; // then `_beat` has latched
};

} // namespace Zv
