// Registry of all threads of the process, thread groups, real-time operation (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkSingleton.h"
#include "resmgt/locks/lkThreadId.h"
#include "resmgt/threads/mtThread.h"
#include "zvbase/objPtr.h"

#include <iosfwd>

namespace Zv {

class MtThreadFactory;

/// A group of threads whose size depends on the number of processors to use (extenders). A derived
/// class adapts the group in `processorsChanged`.
///
///     class Crew : public MtThreadGroup
///     {
///     public:
///         ~Crew() noexcept(false) override { MtThreadMgr::getInstance().removeGroup(this); }
///         void join() { MtThreadMgr::getInstance().addGroup(this); }
///         void processorsChanged(unsigned nbProcessors) override { _size = nbProcessors; }
///
///     private:
///         unsigned _size = 0;
///     };
///
/// The manager of the process, `MtThreadMgr::getInstance`, keeps the groups but never calls
/// `processorsChanged`.
///
/// **Owns**: the application owns the group, and must remove it from the manager before it destroys
/// it.
class ZVRESMGT_EXPORT MtThreadGroup
{
public:
    MtThreadGroup() = default;
    MtThreadGroup(MtThreadGroup const &) = delete;
    MtThreadGroup &operator=(MtThreadGroup const &) = delete;
    virtual ~MtThreadGroup() noexcept(false);

    /// Called when the number of processors to use has changed. A manager that calls it does so
    /// under its lock.
    virtual void processorsChanged(unsigned nbProcessors) = 0;
};

/// Registry of all threads and thread groups of the process. It also switches the process into
/// real-time operation. A singleton.
///
///     #include <iostream>
///
///     MtThreadMgr &mgr = MtThreadMgr::getInstance();
///     if (MtThread * const self = MtThreadMgr::findCurrentThread())
///         std::cout << self->getName().getChars() << " of " << mgr.getNbThreads() << " threads";
///
/// The thread that creates the manager becomes its main thread, "main". Adding, removing and
/// finding a thread take the same time for any number of threads, as long as each thread reports
/// its number by `threadIdChanged`.
///
/// **Threads**: thread-safe, if the operation says nothing else.
///
/// **Blocks**: no operation waits for the end of a thread.
///
/// **Owns**: the caller keeps the ownership of groups and threads.
class ZVRESMGT_EXPORT MtThreadMgr
{
    // The order of the virtual functions is part of the binary interface. It decides the order of
    // the sections.
public:
    /// Whether the application wants real-time operation when the packages are initialised.
    enum RealTimeParam
    {
        REAL_TIME_NOT_STATED = 0,
        REAL_TIME_WANTED = 1,   ///< A refusal is tolerated.
        REAL_TIME_REQUIRED = 2, ///< A refusal is thrown.
    };

    /// Returns the manager of the process, and creates it if needed.
    static MtThreadMgr &getInstance();
    /// Returns the calling thread, or null if the library did not create it.
    [[nodiscard]] static MtThread *findCurrentThread();
    /// States that the application wants real-time operation, or requires it if `required` is true.
    /// Must be called before the packages are initialised, by the thread that initialises them.
    static void indicateAppIsRealTime(bool required);
    /// Like the function above, with a name for each choice.
    static void indicateAppIsRealTime(RealTimeParam wish);
    /// Returns what was stated, or `REAL_TIME_NOT_STATED`.
    static RealTimeParam getRealTimeParam();

    MtThreadMgr(MtThreadMgr const &) = delete;
    MtThreadMgr &operator=(MtThreadMgr const &) = delete;

    /// Adds a group. Fails an assertion if the group was added already.
    virtual void addGroup(MtThreadGroup *group) = 0;
    /// Adds a thread. Fails an assertion if the thread was added already. For implementations of
    /// `MtThread`.
    virtual void addThread(MtThread *thread) = 0;
    /// Removes a group. Fails an assertion if there is no such group.
    virtual void removeGroup(MtThreadGroup *group) = 0;
    /// Removes a thread. Fails an assertion if there is no such thread. For implementations of
    /// `MtThread`.
    virtual void removeThread(MtThread *thread) = 0;
    /// Returns the thread with the number `id`, the one that was added first if there are several,
    /// or null. The caller must make sure that the thread is not destroyed meanwhile.
    [[nodiscard]] virtual MtThread *findThread(LkThreadId const &id) = 0;
    /// Returns the number of registered threads, including "main" and those that do not run.
    virtual unsigned getNbThreads() const = 0;
    /// Sets what `getNbProcessors` returns. Changes nothing else.
    virtual void setNbProcessors(unsigned nbProcessors) = 0;
    /// Returns the number of processors to use. At first this is the number of processors of the
    /// machine that are online. The process may not be allowed to use all of them.
    virtual unsigned getNbProcessors() const = 0;
    /// Returns whether `setRealTime` has switched the process into real-time operation.
    virtual bool isRealTime() const = 0;
    /// Writes each thread on a line of its own, then the graph of the priorities. Calls
    /// `MtThread::dump` under the manager's lock, and writes to the stream without a lock.
    virtual void dump(std::ostream &) const = 0;

protected:
    virtual ~MtThreadMgr() noexcept(false);
    friend class LkSingleton<MtThreadMgr>;

    /// Called under the manager's lock when the number of processors to use has changed.
    virtual void updateGroups(unsigned nbProcessors) = 0;

public:
    /// Switches the process into real-time operation or out of it. Does nothing if the environment
    /// variable `ZV_THREAD_NO_REALTIME` is set and not 0, or if the process is in the wanted state.
    /// Switching it off gives the process the normal priority class, even if it had another class
    /// before.
    ///
    /// Throws `MtEx::ExRealTimeNotEnabled` if the system refuses and real-time operation is
    /// required. If it is only wanted, a refusal is ignored.
    virtual void setRealTime(bool wanted) = 0;

protected:
    /// Called by `setRealTime`. Throws `MtEx::ExRealTimeNotEnabled` if the process may not enter
    /// real-time operation.
    virtual void enableRealTime() = 0;
    /// Called by `setRealTime`.
    virtual void disableRealTime() = 0;

public:
    /// Tells the manager that the number of a thread has changed. A null number means that it does
    /// not run. For implementations of `MtThread`.
    virtual void threadIdChanged(MtThread *thread, LkThreadId const &id);

protected:
    MtThreadMgr() = default;
    /// Creates the object of the calling thread.
    [[nodiscard]] ObjPtrRet<MtThread> createMainThread(MtThreadFactory &factory);

    /// What `getRealTimeParam` returns.
    static RealTimeParam _realTimeParam;
};

ZV_DECLARE_SINGLETON(MtThreadMgr);

/// Writes the manager's dump.
ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &, MtThreadMgr const &);

/// Writes the manager's dump to the log. To be called in a debugger.
ZVRESMGT_EXPORT void printThreadMgr();

} // namespace Zv
