// All threads of the process.
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkSingleton.h"
#include "resmgt/locks/lkThreadId.h"
#include "resmgt/threads/mtThread.h"
#include "zvbase/objPtr.h"

#include <iosfwd>

namespace Zv {

class MtThreadFactory;
class MtThreadGroup;

/// Knows all threads and thread groups of the process and the number of processors to use, and switches the process
/// in and out of real-time operation. A singleton; all operations may be called by any thread, and none of them waits
/// for a thread.
///
/// The thread that makes the manager becomes its main thread, "main". Adding, removing and finding a thread take the
/// same time however many there are, as long as each of them reports its number by `threadIdChanged`.
class ZVRESMGT_EXPORT MtThreadMgr
{
public:
    /// Whether the application wants real-time operation when the packages come up.
    enum RealTimeParam
    {
        REAL_TIME_NOT_STATED = 0,
        REAL_TIME_WANTED = 1,   ///< a failure is tolerated
        REAL_TIME_REQUIRED = 2, ///< a failure is thrown
    };

    static MtThreadMgr &getInstance();
    /// The calling thread; null where the library did not make it.
    static MtThread *findCurrentThread();
    /// To be called before the packages come up, by the thread that does that.
    static void indicateAppIsRealTime(bool required);
    static RealTimeParam getRealTimeParam();

    MtThreadMgr(MtThreadMgr const &) = delete;
    MtThreadMgr &operator=(MtThreadMgr const &) = delete;

    /// The caller keeps the ownership of groups and threads. Adding one twice and removing one that is not there fail
    /// assertions. The manager of the process tells its groups nothing, see `MtThreadGroup`.
    virtual void addGroup(MtThreadGroup *group) = 0;
    /// For implementations of `MtThread`.
    virtual void addThread(MtThread *thread) = 0;
    virtual void removeGroup(MtThreadGroup *group) = 0;
    virtual void removeThread(MtThread *thread) = 0;
    /// The thread that runs under a number, the one registered first where there are several; or null. The caller
    /// sees to it that the thread stays.
    virtual MtThread *findThread(LkThreadId const &id) = 0;
    /// Returns the number of registered threads, "main" included, whether or not they run.
    virtual unsigned getNbThreads() const = 0;
    /// Sets what `getNbProcessors` returns. Changes nothing else.
    virtual void setNbProcessors(unsigned nbProcessors) = 0;
    /// Returns the number of processors to use. At first these are all of the machine that are in use, also those that
    /// this process may not use.
    virtual unsigned getNbProcessors() const = 0;
    /// Returns whether `setRealTime` has brought the process into real-time operation.
    virtual bool isRealTime() const = 0;
    /// Every thread on a line of its own, then the priorities.
    virtual void dump(std::ostream &) const = 0;

protected:
    virtual ~MtThreadMgr() noexcept(false);
    friend class LkSingleton<MtThreadMgr>;

    virtual void updateGroups(unsigned nbProcessors) = 0;

public:
    /// Enters or leaves real-time operation. Does nothing while the environment variable ZV_THREAD_NO_REALTIME is not
    /// 0, nor if the process is in the wanted state. Leaving it gives the process the normal priority class, whatever
    /// class it had before. Throws `MtEx::ExRealTimeNotEnabled` if the system refuses and real-time operation is
    /// required; otherwise a refusal is dropped.
    virtual void setRealTime(bool wanted) = 0;

protected:
    /// Throws `MtEx::ExRealTimeNotEnabled` where the process may not enter real-time operation.
    virtual void enableRealTime() = 0;
    virtual void disableRealTime() = 0;

public:
    /// For implementations of `MtThread`: the thread's number has changed; null is none.
    virtual void threadIdChanged(MtThread *thread, LkThreadId const &id);

protected:
    MtThreadMgr() = default;
    ObjPtrRet<MtThread> createMainThread(MtThreadFactory &factory);

    static RealTimeParam _realTimeParam;
};

ZV_DECLARE_SINGLETON(MtThreadMgr);

/// Calls `dump`.
ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &, MtThreadMgr const &);

/// For the debugger: writes the manager's dump to the log.
ZVRESMGT_EXPORT void printThreadMgr();

} // namespace Zv
