// Thread of the platform's services.
#pragma once

#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkLock.h"
#include "resmgt/locks/lkNamedSema.h"
#include "resmgt/locks/lkRecLock.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/mtThread.h"
#include "zvbase/exBase.h"
#include "zvbase/platform/shared.h"
#include "zvbase/platform/types.h"
#include "zvbase/threadAnnotations.h"

#include <exception>

namespace Zv {

class LgQueue;
class MtThreadMgr;
struct MtThreadStatus;

/// Two locks. `_lock` is held during a whole operation and during the callbacks of the protocol.
/// `_stateLock` guards the fields. It is a leaf: under it only the operating system is called, and
/// nothing that waits. The solver of priorities, `MtThreadMgr` and the thread itself acquire the
/// leaf alone, so that a callback may call any of them.
class MtThreadWindows final : public MtThread
{
public:
    /// If `isNewThread` is false, this is the object of the calling thread, the main thread.
    MtThreadWindows(LiString const &name, ObjPtr<MtThreadProtocol> protocol, MtThreadMgr &threadMgr,
                    bool isNewThread, bool terminateOnUnhandled, unsigned stackSize);

    void start() override;
    /// Like `start`, but may return before the thread has begun. The thread registers its log queue
    /// before its body then. If a processor was chosen for the thread, does what `start` does.
    void startWithoutMeeting();
    void stop() override;
    void join() override;
    void cancel() override;
    void testCancel() override;
    bool isProcessorPlaceable() const override;
    int getProcessorNb() const override;
    void setProcessorNb(int processorNb) override;
    bool isRunning() const override;
    bool isCancelable() const override;
    LiString getName() const override;
    Priority &getPriority() override;
    MtThreadProtocol *getProtocol() const override;
    MtThreadProtocol *getProtocolNoLock() const override;
    ObjPtrRet<MtThreadProtocol> detachProtocol() override;
    LkThreadId getThreadId() const override;
    void dump(std::ostream &) const override;
    MtThreadStatus readStatus() const;
    ~MtThreadWindows() noexcept(false) override;
    bool enableCancel() override;
    bool disableCancel() override;

protected:
    void setPriorityValue(int level) override;
    void applyProcessorNb() override;
    void threadEnded() override;
    void setProcessorNbNoLock(int processorNb) override;

private:
    template <class>
    friend struct TestAccess;

    static constexpr unsigned DEFAULT_STACK_SIZE = 0x10000;

    /// Changed without a lock, because a thread that may be killed must not hold one.
    enum class Cancelling : unsigned
    {
        FORBIDDEN,
        ALLOWED,
        BEGUN ///< the thread is being killed
    };

    void start(bool meets);
    static ZvPlatform::ThreadResult execute(void *data);
    void run() noexcept;
    bool meetStarter();
    void executeProtocol();

    /// One start of the thread.
    struct Run
    {
        ZvPlatform::Handle handle; // null if the thread does not run
        unsigned number;
    };

    void adoptCallingThread();
    void disownCallingThread();
    void enterRunning(ZvPlatform::Handle threadHandle, ZvPlatform::ThreadNumber threadId);
    Run getRun() const;
    ObjPtrRet<ExBase> waitForEnd();
    /// Ends a run and returns its stored exception. Does nothing if another `join` was first.
    ObjPtrRet<ExBase> leaveRunning(Run const &run);
    /// Waits for the end of the thread. For the destructor.
    void finish();
    bool terminate();
    void exitLogQueue();
    void abortOnException() const;
    bool setCancelable(bool cancelable, bool check);
    bool isRunningNoLock() const;
    bool isToBePlaced() const;
    bool isToBePlacedNoLock() const ZV_REQUIRES(_stateLock);
    /// Ends a start whose thread could not be placed and has not run its body.
    void failStart();
    /// Sets `_priorityValue` in the system. Releases `_stateLock` if it fails.
    void applyPriorityValue(LkGuard<LkLock const> &state) ZV_REQUIRES(_stateLock);
    /// Releases `_stateLock` if it fails.
    void place(int processorNb, LkGuard<LkLock const> &state) ZV_REQUIRES(_stateLock);

    MtThreadMgr *_threadMgr;
    ZvPlatform::Handle _threadHandle ZV_GUARDED_BY(_stateLock);
    ZvPlatform::ThreadNumber _threadId ZV_GUARDED_BY(_stateLock);
    int _priorityValue ZV_GUARDED_BY(_stateLock);
    int _ownPriorityValue ZV_GUARDED_BY(_stateLock); // of the main thread
    bool _isLevelRefused ZV_GUARDED_BY(_stateLock);
    int _processorNb ZV_GUARDED_BY(_stateLock);
    unsigned _stackSize;
    ZvPlatform::Shared<bool> _isRunning; // changes under `_stateLock`
    ZvPlatform::Shared<Cancelling> _cancelling;
    bool _terminateOnUnhandled;
    bool _isNewThread;
    unsigned _runNb ZV_GUARDED_BY(_stateLock); // counts the starts
    bool _meets;                               // in `start`. Written before the thread is created
    unsigned _loggerRun; // the thread writes this and `_logQueue` before it may be cancelled
    LgQueue *_logQueue;
    ObjPtr<ExBase> _exception ZV_GUARDED_BY(_stateLock);
    std::exception_ptr _placingFailure; // a thread that meets its starter writes it before
    LkRecLock _lock;
    LkLock _stateLock;
    LkUnnamedSema _started;
    LkUnnamedSema _created;
    MtThreadPriority _priority;
    ObjPtr<MtThreadProtocol> _protocol ZV_GUARDED_BY(_lock);
};

} // namespace Zv
