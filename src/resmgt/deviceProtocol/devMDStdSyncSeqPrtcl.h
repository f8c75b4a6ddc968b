// Steps of a sequence as requests on a standard device's thread (device writers).
#pragma once

#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/deviceProtocol/devMDStdFifo.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// Makes the requests of a sequence's steps. The device implements it, or uses
/// `makeSyncSeqANOFactory`. The operations correspond to those of `DevMDSyncSeqPrtcl`.
///
/// **Threads**: called on the thread that drives the sequence. The requests are executed on the
/// device's thread.
class ZVRESMGT_EXPORT DevMDStdSyncSeqANOFactory
{
public:
    virtual ~DevMDStdSyncSeqANOFactory() noexcept(false);

    /// Returns the request that starts the device, which keeps `recover` and `abort`. See
    /// `DevMDSyncSeqPrtcl::performStart`.
    virtual ObjPtrRet<DevMDStdANO> createStartANO(ObjPtr<DevANO> recover, ObjPtr<DevANO> abort) = 0;
    /// Returns the request that locks the device to the mark of its parent.
    virtual ObjPtrRet<DevMDStdANO> createSyncANO(DtTimeMark const &mark) = 0;
    /// Returns the request that locks the device as the root, with the largest latency of the
    /// sequence.
    virtual ObjPtrRet<DevMDStdANO> createSyncANO(DtTime const &latency) = 0;
    /// Returns the request that lets the device recover.
    virtual ObjPtrRet<DevMDStdANO> createRecoverANO() = 0;
    /// Returns the request that stops the device.
    virtual ObjPtrRet<DevMDStdANO> createStopANO() = 0;
    /// Returns the request that aborts the device.
    virtual ObjPtrRet<DevMDStdANO> createAbortANO() = 0;
};

/// Turns each step of a sequence into a request on the device's thread.
///
/// Each call queues the request behind those that the queue holds, also if the queue is full, and
/// never blocks. A sequence has at most one step and one abort of a device on their way, so the
/// queue stays bounded. The completion runs when the request has been executed. A device that takes
/// longer for a step detaches the completion with `releaseACO` and runs it when the step is
/// finished.
///
/// If the device is closed, the request and its completion are destroyed without having run. The
/// step is never finished then.
///
/// The device implements `getLatency` and `getMark`. They run on other threads than the device's,
/// so what they read must be safe to read there.
///
/// **Threads**: the thread that drives the sequence makes the calls, one at a time.
///
/// **Throws**: each call throws what the request factory throws, and `RCEx::ExNullPtr` if the
/// factory is null or returns null. It passes on what the queue's observer throws. The request is
/// queued then.
class ZVRESMGT_EXPORT DevMDStdSyncSeqPrtcl : public DevMDSyncSeqPrtcl
{
public:
    /// `fifo` is the queue of the device. `anoFactory` makes a request of each step.
    DevMDStdSyncSeqPrtcl(LiString const &name, RCShdPtr<DevMDStdFifo> fifo,
                         ObjPtr<DevMDStdSyncSeqANOFactory> anoFactory);

    void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO> recover, ObjPtr<DevANO> abort) override;
    void performSync(ObjPtr<DevACO> aco, DtTimeMark const &mark) override;
    void performSync(ObjPtr<DevACO> aco, DtTime const &latency) override;
    void performRecover(ObjPtr<DevACO> aco) override;
    void performStop(ObjPtr<DevACO> aco) override;
    void performAbort(ObjPtr<DevACO> aco) override;

protected:
    ~DevMDStdSyncSeqPrtcl() override;

private:
    void send(ObjPtr<DevMDStdANO> ano, ObjPtr<DevACO> aco);

    LiString _name;
    RCShdPtr<DevMDStdFifo> _fifo;
    ObjPtr<DevMDStdSyncSeqANOFactory> _anoFactory;
};

/// What a device does at each step of a sequence. A step is finished when its function returns. A
/// device that needs longer derives from `DevMDStdDevice`, or makes its requests with `makeANO`.
template <class Handler>
concept DevMDSyncSeqHandler = requires(Handler &handler, ObjPtr<DevANO> ano, DtTimeMark const &mark,
                                       DtTime const &latency)
{
    handler.start(ano, ano);
    handler.sync(mark);
    handler.sync(latency);
    handler.recover();
    handler.stop();
    handler.abort();
};

namespace Detail {

template <DevMDSyncSeqHandler Handler>
class HandlerSyncSeqANOFactory final : public DevMDStdSyncSeqANOFactory
{
public:
    explicit HandlerSyncSeqANOFactory(Handler &handler) : _handler(handler) {}

    ObjPtrRet<DevMDStdANO> createStartANO(ObjPtr<DevANO> recover, ObjPtr<DevANO> abort) override
    {
        return makeANO([&handler = _handler, recover = std::move(recover),
                        abort = std::move(abort)]() mutable { handler.start(recover, abort); });
    }
    ObjPtrRet<DevMDStdANO> createSyncANO(DtTimeMark const &mark) override
    {
        return makeANO([&handler = _handler, mark] { handler.sync(mark); });
    }
    ObjPtrRet<DevMDStdANO> createSyncANO(DtTime const &latency) override
    {
        return makeANO([&handler = _handler, latency] { handler.sync(latency); });
    }
    ObjPtrRet<DevMDStdANO> createRecoverANO() override
    {
        return makeANO([&handler = _handler] { handler.recover(); });
    }
    ObjPtrRet<DevMDStdANO> createStopANO() override
    {
        return makeANO([&handler = _handler] { handler.stop(); });
    }
    ObjPtrRet<DevMDStdANO> createAbortANO() override
    {
        return makeANO([&handler = _handler] { handler.abort(); });
    }

private:
    Handler &_handler;
};

} // namespace Detail

/// Returns a factory whose requests call `start(ObjPtr<DevANO>, ObjPtr<DevANO>)`, `sync` with a
/// mark or a time, `recover`, `stop` and `abort` of the handler on the device's thread. The handler
/// must exist until that thread has ended. As a rule it is the device or a member of it.
template <DevMDSyncSeqHandler Handler>
[[nodiscard]] ObjPtrRet<DevMDStdSyncSeqANOFactory> makeSyncSeqANOFactory(Handler &handler)
{
    return makeObj<Detail::HandlerSyncSeqANOFactory<Handler>>(handler);
}

} // namespace Zv
