// Opening and closing of a device that has a thread.
#pragma once

#include "resmgt/deviceProtocol/devMDAccessPrtcl.h"
#include "resmgt/deviceProtocol/devMDStdANO.h"
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

/// Makes the requests to open and to close a device. Written by the device; called on the thread that opens or closes.
/// What a request throws on the device's thread comes out of `performOpen` or `performClose`.
class ZVRESMGT_EXPORT DevMDStdAccessANOFactory
{
public:
    virtual ~DevMDStdAccessANOFactory() noexcept(false);

    virtual ObjPtrRet<DevMDStdANO> createOpenANO() = 0;
    virtual ObjPtrRet<DevMDStdANO> createCloseANO() = 0;
};

/// Gives a device its thread. A device is constructed, opened once, closed, and destroyed; the operations are called
/// by one thread at a time, not the device's own, and both block.
///
/// The thread bears the device's name, runs at or above the real-time priority, and serves the FIFO that the device's
/// other protocols put their requests into.
class ZVRESMGT_EXPORT DevMDStdAccessPrtcl : public DevMDAccessPrtcl
{
public:
    DevMDStdAccessPrtcl(LiString const &name, RCShdPtr<DevMDStdFifo> fifo,
                        ObjPtr<DevMDStdThreadProtocol> threadProtocol,
                        ObjPtr<DevMDStdAccessANOFactory> anoFactory);

    /// Starts the thread and returns when it has executed the open request. Throws `RCEx::ExNullPtr` on a second call,
    /// and if something that the constructor was given is null. Throws what the open request has thrown. When it
    /// throws, no thread is left, and the device can only be destroyed.
    void performOpen() override;
    /// Executes all requests sent before, then the close request, and returns when the thread has ended. Requests
    /// that come later are destroyed without being executed. Throws `RCEx::ExNullPtr` if the device was never opened,
    /// and fails an assertion if it is closed already. Throws what the close request has thrown, when the thread has
    /// ended.
    void performClose() override;

    /// The priority that a device's thread runs at or above: the real-time landmark.
    static Priority &getPriority();

protected:
    /// Ends the thread of a device that was not closed. Requests that are queued or still arrive are destroyed without
    /// being executed. Blocks until the thread has executed its present request.
    ///
    /// The last reference to an open device must not be released on the device's own thread, because a thread cannot
    /// wait for its own end. If it is, the destructor fails an assertion, and the thread ends after its present
    /// request.
    ~DevMDStdAccessPrtcl() override;

private:
    using Send = std::exception_ptr (DevANOFifo::*)(ObjPtr<DevANO>);

    /// Returns when the device's thread has executed the request, and has been told to stop. Returns what the request
    /// has thrown, or what the FIFO's observer has thrown. The request is sent in spite of the latter.
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

} // namespace Zv
