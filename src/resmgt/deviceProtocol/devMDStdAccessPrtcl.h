// Thread of a standard device: opening starts it, closing ends it (device writers).
#pragma once

#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/deviceProtocol/devMDStdFifo.h"
#include "resmgt/deviceProtocol/devMDStdThreadProtocol.h"
#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"

#include <exception>

namespace Zv {

class MtThread;
class Priority;
class PriorityRelation;

/// Makes the requests that open and close a device. The device implements it, or uses
/// `makeAccessANOFactory`.
///
/// **Threads**: called on the thread that opens or closes the device. The requests are executed on
/// the device's thread.
///
/// **Throws**: `performOpen` and `performClose` throw what their request has thrown on the device's
/// thread, what these functions throw, and `RCEx::ExNullPtr` if they return null.
class ZVRESMGT_EXPORT DevMDStdAccessANOFactory
{
public:
    virtual ~DevMDStdAccessANOFactory() noexcept(false);

    /// Returns the request that opens the device.
    virtual ObjPtrRet<DevMDStdANO> createOpenANO() = 0;
    /// Returns the request that closes the device.
    virtual ObjPtrRet<DevMDStdANO> createCloseANO() = 0;
};

/// Gives a device its own thread, which serves the queue of the device's other protocols. The
/// thread has the device's name and runs at or above the real-time priority.
///
/// A device is constructed, opened once, closed, and destroyed.
///
/// **Threads**: one thread at a time, which must not be the device's own.
///
/// **Blocks**: `performOpen` and `performClose` block until the device's thread has executed their
/// request.
class ZVRESMGT_EXPORT DevMDStdAccessPrtcl : public DevMDAccessPrtcl
{
public:
    /// `name` is the name of the device and of its thread. `threadProtocol` is the body of the
    /// thread and must serve `fifo`.
    DevMDStdAccessPrtcl(LiString const &name, RCShdPtr<DevMDStdFifo> fifo,
                        ObjPtr<DevMDStdThreadProtocol> threadProtocol,
                        ObjPtr<DevMDStdAccessANOFactory> anoFactory);

    /// Starts the thread and returns when it has executed the open request.
    ///
    /// Throws what the open request has thrown. Throws `RCEx::ExNullPtr` if it is called again, or
    /// if an argument of the constructor was null. If it throws on the first call, no thread is
    /// left, the queue is closed, and the device can only be destroyed.
    void performOpen() override;
    /// Executes all requests that were sent before, then the close request, and returns when the
    /// thread has ended. Requests that arrive later are destroyed without being executed.
    ///
    /// Throws what the close request has thrown, when the thread has ended. Throws
    /// `RCEx::ExNullPtr` if the device was never opened. Fails an assertion if it is closed
    /// already.
    void performClose() override;
    /// Closes the queue if the device has no thread. Does nothing otherwise. The manager calls it
    /// when `performOpen` has thrown: a derived class may have failed before it called
    /// `performOpen` of this class. Throws the first failure of the destruction of a request.
    void closeUnopened();

    /// Returns the priority that the threads of all standard devices run at or above: the real-time
    /// landmark.
    static Priority &getPriority();

protected:
    /// If the device was not closed, ends its thread. Blocks until the thread has executed its
    /// present request. Requests that are queued or still arrive are destroyed without being
    /// executed.
    ///
    /// The device's own thread must not release the last reference to an open device, because a
    /// thread cannot wait for its own end. If it does, the destructor fails an assertion, and the
    /// thread ends after its present request.
    ~DevMDStdAccessPrtcl() override;

private:
    using Send = std::exception_ptr (DevANOFifo::*)(ObjPtr<DevANO>);

    /// Returns when the device's thread has executed the request and has been told to stop. Returns
    /// what the request has thrown, or what the queue's observer has thrown. In the second case the
    /// request is queued nevertheless.
    std::exception_ptr stopAfter(ObjPtr<DevMDStdANO> last, Send send);
    void endThread(ObjPtr<DevMDStdANO> last, Send send);
    void abandonThread();
    void rollBackOpen();

    LiString _name;
    RCShdPtr<DevMDStdFifo> _fifo;
    ObjPtr<DevMDStdThreadProtocol> _threadProtocol;
    ObjPtr<DevMDStdAccessANOFactory> _anoFactory;
    ObjPtr<MtThread> _thread;
    ObjPtr<PriorityRelation> _relation;
};

/// What a device does when it is opened and closed.
template <class Handler>
concept DevMDAccessHandler = requires(Handler &handler)
{
    handler.open();
    handler.close();
};

namespace Detail {

template <class Handler>
class HandlerAccessANOFactory final : public DevMDStdAccessANOFactory
{
public:
    explicit HandlerAccessANOFactory(Handler &handler) : _handler(handler) {}

    ObjPtrRet<DevMDStdANO> createOpenANO() override
    {
        return makeANO([&handler = _handler] { handler.open(); });
    }
    ObjPtrRet<DevMDStdANO> createCloseANO() override
    {
        return makeANO([&handler = _handler] { handler.close(); });
    }

private:
    Handler &_handler;
};

} // namespace Detail

/// Returns a factory whose requests call `open` and `close` of the handler on the device's thread.
/// The handler must exist until that thread has ended. As a rule it is the device or a member of
/// it.
template <DevMDAccessHandler Handler>
[[nodiscard]] ObjPtrRet<DevMDStdAccessANOFactory> makeAccessANOFactory(Handler &handler)
{
    return makeObj<Detail::HandlerAccessANOFactory<Handler>>(handler);
}

} // namespace Zv
