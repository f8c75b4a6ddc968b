// The thread that takes the beats of a source and passes them on.
#pragma once

#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"
#include "resmgt/syncEngine/seClientThread.h"
#include "resmgt/threads/mtThreadProtocol.h"
#include "resmgt/threads/priorityRelation.h"
#include "zvbase/containers.h"
#include "zvbase/objPtr.h"
#include "zvbase/threadAnnotations.h"

#include <cstdint>
#include <iosfwd>

namespace Zv {

class MtThread;
class MtThreadFactory;
class SeSourceProtocol;

/// One source's generator: publishes the source's count and pulses on each beat, and owns the threads of the clients.
/// It goes from one state to the next, in order, and is not used again.
///
/// `addClient` and `removeClient` are called by one thread at a time, and not while the generator's thread is being
/// destroyed; the engine's lock sees to that.
class SeGeneratorThread final : public MtThreadProtocol
{
public:
    enum SourceState
    {
        STARTING, ///< No beat yet.
        BEATING,
        STOPPING, ///< The clients are being ended.
        STOPPED
    };

    /// `source` outlives the generator.
    explicit SeGeneratorThread(SeSourceProtocol &source);
    /// Asserts that the generator never ran, or has been stopped.
    ~SeGeneratorThread() noexcept(false) override;

    void performAttach(MtThread *thread) override;
    void performDetach(MtThread *thread) override;
    void performExecute(MtThread *thread) override;
    /// Ends all clients and destroys them, without a lock. Blocks until the source has beaten once, unless the thread
    /// was never started; the thread itself ends with a further beat. If the destructor of a client throws, the others
    /// are ended all the same, and the first exception comes out.
    void performStop(MtThread *thread) override;
    virtual void dump(std::ostream &stream) const;

    /// Makes a thread for the client and starts it. Asserts that the generator is not stopped, and that the client is
    /// not there yet.
    void addClient(LiString const &name, ObjPtr<SeClientThread> &client, std::int32_t divisor,
                   MtThreadFactory &factory);
    /// Ends the client's thread and gives the client back, also while the priority graph is invalid. Asserts that the
    /// generator is not stopped, and that the client is there. While the generator is starting, this pulses the beat,
    /// and so does the first beat then.
    ObjPtrRet<SeClientThread> removeClient(SeClientThread *client);
    bool hasClient(SeClientThread const *client) const;

    bool isState(SourceState state) const;
    /// Blocks until the state is this one, or a later one.
    void waitState(SourceState state) const;
    bool isSource(SeSourceProtocol const &source) const { return _source == &source; }

private:
    using Guard = LkGuard<LkMutex const>;
    using Clients = List<MtThread *>;

    void setState(SourceState state) ZV_REQUIRES(_mutex);
    /// Wakes the clients.
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
    bool _hasPulsed ZV_GUARDED_BY(_mutex) = false; // so that `_beat` has latched
};

} // namespace Zv
