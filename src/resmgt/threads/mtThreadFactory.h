// Where threads come from.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkSingleton.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadProtocol.h"
#include "zvbase/objPtr.h"

namespace Zv {

class MtThreadMgr;

/// Makes the threads of the platform. A singleton; all operations may be called by any thread.
///
///     ObjPtr<MtThread> thread = MtThreadFactory::getInstance().createThread(
///         "decoder", ObjPtr<MtThreadProtocol>(new Decoder), true, 0);
///     thread->start();
class ZVRESMGT_EXPORT MtThreadFactory
{
public:
    static MtThreadFactory &getInstance();

    MtThreadFactory(MtThreadFactory const &) = delete;
    MtThreadFactory &operator=(MtThreadFactory const &) = delete;

    /// A thread that is registered with `MtThreadMgr` and not started. The beginning of its name also reaches the
    /// operating system, unchanged: the whole UTF-8 characters of its first 15 bytes. `terminateOnUnhandled`: a stored exception of the body ends the process. `stackSize` is in
    /// bytes, all of them for the frames of the body; 0 stands for 65536.
    virtual ObjPtrRet<MtThread> createThread(LiString const &name,
                                             ObjPtr<MtThreadProtocol> protocol,
                                             bool terminateOnUnhandled, unsigned stackSize) = 0;
    /// The range of the levels of a thread's priority, from 0, the idle level, to 6, the time-critical one.
    ///
    /// On Linux these are nice values 14, 4, 2, 0, -2, -4 and -14 under `SCHED_OTHER`, and the priorities 16, 22 to 26
    /// and 31 under `SCHED_RR` in real-time operation, whatever the process was started with. If the process lacks the
    /// privilege for a level, the thread gets the nearest level allowed. It is never lowered if it could not be raised
    /// again. Threads that the application made itself never change.
    virtual int getMinPriority() const = 0;
    virtual int getMaxPriority() const = 0;

protected:
    virtual ~MtThreadFactory();
    friend class LkSingleton<MtThreadFactory>;
    friend class MtThreadMgr;

    /// The object that stands for the calling thread: it has no protocol and starts nothing. For `manager` alone,
    /// once in a process (asserts "first").
    virtual ObjPtrRet<MtThread> createMainThread(LiString const &name, MtThreadMgr &manager) = 0;

    MtThreadFactory() = default;
};

ZV_DECLARE_SINGLETON(MtThreadFactory);

} // namespace Zv
