// A device that has only its own work to write.
#pragma once

#include "resmgt/deviceProtocol/devMDStdANOFactories.h"
#include "resmgt/deviceProtocol/devMDStdAccessPrtcl.h"
#include "resmgt/deviceProtocol/devMDStdPropertyPrtcl.h"
#include "resmgt/deviceProtocol/devMDStdStreamPrtcl.h"
#include "resmgt/deviceProtocol/devMDStdSyncSeqPrtcl.h"
#include "resmgt/deviceProtocol/devMDStdThreadProtocol.h"

#include <exception>

namespace Zv {

/// A device of all four faces with its thread and its FIFO. A device derives from it, adds its streams and properties
/// in its constructor, and overrides what it does something at:
///
///     class Shutter : public Zv::DevMDStdDevice
///     {
///     public:
///         explicit Shutter(Zv::LiString const &name) : DevMDStdDevice(name)
///         {
///             Zv::ObjPtr<Zv::DevMDStdPropertySetBuilder> builder = getPropertySetBuilder();
///             builder->addProperty(Zv::makeProperty<double>("speed", "In seconds", getFifo(), …));
///         }
///
///     protected:
///         void sync() override { … }
///         void stop() override { … }
///     };
///
/// What it overrides, and the functions of its properties and sinks, run on its own thread, one at a time, so that the
/// device needs no lock. Close the device before you destroy it. Otherwise its thread runs on with a destroyed object
/// until the destructor of the base has ended it. A device that is to lack a face derives from the standard protocols
/// of the others instead.
class ZVRESMGT_EXPORT DevMDStdDevice : public DevMDStdAccessPrtcl,
                                       public DevMDStdSyncSeqPrtcl,
                                       public DevMDStdStreamPrtcl,
                                       public DevMDStdPropertyPrtcl
{
public:
    /// None and the unset mark, for a device that has no latency and gives its children none to lock to. Called on
    /// other threads than the device's: what a device reads here must be safe to read there.
    DtTime getLatency() override;
    DtTimeMark getMark() override;

protected:
    explicit DevMDStdDevice(LiString const &name);
    /// With a FIFO of another capacity or with an observer.
    DevMDStdDevice(LiString const &name, RCShdPtr<DevMDStdFifo> const &fifo);
    /// With a body of its own as well, which serves that FIFO: `performWork` and `performFailed` are not called then.
    DevMDStdDevice(LiString const &name, RCShdPtr<DevMDStdFifo> const &fifo,
                   ObjPtr<DevMDStdThreadProtocol> body);
    ~DevMDStdDevice() override;

    RCShdPtr<DevMDStdFifo> const &getFifo() const { return _fifo; }

    // The steps, which do nothing as they stand. What `open` or `close` throws comes out of `performOpen` or
    // `performClose`.
    virtual void open();
    virtual void close();
    virtual void start();
    /// Lock, to the mark of the parent device or, as the root, with the largest latency of the sequence. Both come to
    /// `sync` where they are not overridden.
    virtual void syncToMark(DtTimeMark const &mark);
    virtual void syncWithLatency(DtTime const &latency);
    virtual void sync();
    virtual void recover();
    virtual void stop();
    virtual void abort();

    /// See `DevMDStdLoopThreadProtocol`.
    virtual double performWork();
    virtual void performFailed(std::exception_ptr const &failure);

    /// For a step from `start` to `abort` that is not finished when it returns: the step is finished when the device
    /// executes what it gets here. Fails an assertion outside of a step.
    ObjPtrRet<DevACO> takeCompletion();
    /// For a device that has lost its lock, or that cannot go on: tells the sequence so. On the device's thread, from
    /// `start` on until `stop` or `abort` is finished; before and behind that it does nothing, also if `stop` or `abort`
    /// has thrown. If the device took the completion of `stop` or `abort` and runs it later, it must not call
    /// `reportRecover` or `reportAbort` after that.
    ///
    /// A recovery is legal only while the device is in lock: by design, one that meets a stop on its way is an illegal
    /// event, and the sequence does not come to its end.
    void reportRecover();
    void reportAbort();

private:
    class AccessANOFactory;
    class SyncSeqANOFactory;
    class Body;
    class TakenCompletion;

    template <class Step>
    ObjPtrRet<DevMDStdANO> makeStep(Step step);
    template <class Step>
    ObjPtrRet<DevMDStdANO> makeLastStep(Step step);
    void endReports();

    RCShdPtr<DevMDStdFifo> _fifo;
    DevMDStdANO *_request = nullptr;  // of the step that is being made
    bool _isTaken = false;            // its completion
    RCShdPtr<TakenCompletion> _taken; // by the present step
    ObjPtr<DevANO> _recover;
    ObjPtr<DevANO> _abort;
};

} // namespace Zv
