// Factory of threads (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkSingleton.h"
#include "resmgt/threads/mtThread.h"
#include "zvbase/objPtr.h"

namespace Zv {

class MtThreadMgr;

/// Creates threads. A singleton.
///
///     class Decoder : public MtThreadProtocol
///     {
///     public:
///         void performExecute(MtThread *) override {}
///     };
///
///     ObjPtr<MtThread> thread = MtThreadFactory::getInstance().createThread(
///         "decoder", ObjPtr<MtThreadProtocol>(new Decoder));
///     thread->start();
///
/// **Threads**: thread-safe.
class ZVRESMGT_EXPORT MtThreadFactory
{
public:
    /// What happens if an exception of the body is stored when the thread ends. An exception that
    /// leaves `MtThreadProtocol::performExecute` ends the process in either case.
    enum class StoredException
    {
        KEEP,     ///< `MtThread::join` throws it.
        TERMINATE ///< The process ends.
    };

    /// Returns the factory of the process.
    static MtThreadFactory &getInstance();

    MtThreadFactory(MtThreadFactory const &) = delete;
    MtThreadFactory &operator=(MtThreadFactory const &) = delete;

    /// Creates a thread, registers it with `MtThreadMgr` and calls
    /// `MtThreadProtocol::performAttach`. The thread is not started. It owns `protocol`, which may
    /// be null.
    ///
    /// The operating system also gets the whole UTF-8 characters of the first 15 bytes of `name`.
    /// If `terminateOnUnhandled` is true, a stored exception of the body ends the process.
    /// `stackSize` is in bytes, all of them for the frames of the body, and 0 means 65536.
    [[nodiscard]] virtual ObjPtrRet<MtThread> createThread(LiString const &name,
                                                           ObjPtr<MtThreadProtocol> protocol,
                                                           bool terminateOnUnhandled,
                                                           unsigned stackSize) = 0;
    /// Like the function above, with a name for the third argument.
    [[nodiscard]] ObjPtrRet<MtThread>
    createThread(LiString const &name, ObjPtr<MtThreadProtocol> protocol,
                 StoredException stored = StoredException::TERMINATE, unsigned stackSize = 0);
    /// Returns the lowest level of a thread's priority: 0, the idle level.
    ///
    /// On Linux the levels 0 to 6 are nice values 14, 4, 2, 0, -2, -4 and -14 under `SCHED_OTHER`,
    /// and the priorities 16, 22 to 26 and 31 under `SCHED_RR` in real-time operation. The priority
    /// with which the process was started makes no difference. If the process lacks the privilege
    /// for a level, the thread gets the nearest level allowed. It is never lowered if it could not
    /// be raised again. The library does not change threads that it did not create, except the main
    /// thread.
    virtual int getMinPriority() const = 0;
    /// Returns the highest level of a thread's priority: 6, the time-critical level.
    virtual int getMaxPriority() const = 0;

protected:
    virtual ~MtThreadFactory();
    friend class LkSingleton<MtThreadFactory>;
    friend class MtThreadMgr;

    /// Creates the object of the calling thread. It has no protocol and starts nothing. For
    /// `manager` alone, once in a process. Otherwise the assertion "first" fails.
    [[nodiscard]] virtual ObjPtrRet<MtThread> createMainThread(LiString const &name,
                                                               MtThreadMgr &manager) = 0;

    MtThreadFactory() = default;
};

ZV_DECLARE_SINGLETON(MtThreadFactory);

} // namespace Zv
