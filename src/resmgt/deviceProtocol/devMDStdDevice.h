// Standard device with a thread of its own, the base class of most devices (device writers).
#pragma once

#include "resmgt/deviceProtocol/devMDStdAccessPrtcl.h"
#include "resmgt/deviceProtocol/devMDStdProperty.h"
#include "resmgt/deviceProtocol/devMDStdPropertySet.h"
#include "resmgt/deviceProtocol/devMDStdStream.h"
#include "resmgt/deviceProtocol/devMDStdSyncSeqPrtcl.h"
#include "resmgt/deviceProtocol/devMDStdThreadProtocol.h"

#include <exception>

namespace Zv {

/// A device of all four interfaces with its thread and its queue. A device derives from it, adds
/// its streams and properties in its constructor, and overrides the steps at which it has something
/// to do:
///
///     class Shutter : public DevMDStdDevice
///     {
///     public:
///         explicit Shutter(LiString const &name) : DevMDStdDevice(name)
///         {
///             ObjPtr<DevMDStdPropertySetBuilder> builder = getPropertySetBuilder();
///             builder->addProperty(makeProperty<double>(
///                 "speed", "In seconds", getFifo(), [this](double &seconds) { seconds = _speed; },
///                 [this](double seconds) { _speed = seconds; }));
///         }
///
///     protected:
///         void sync() override { _isOpen = true; }
///         void stop() override { _isOpen = false; }
///
///     private:
///         double _speed = 0.01;
///         bool _isOpen = false;
///     };
///
/// Close the device before you destroy it. Otherwise its thread runs on with a destroyed object
/// until the destructor of this class has ended it. A device that must not have all four interfaces
/// derives from the standard protocols of the others instead.
///
/// **Threads**: the steps, `performWork`, `performFailed`, and the functions of the device's
/// properties and sinks run on the device's thread, one at a time, so they need no lock.
/// `getLatency` and `getMark` run on other threads: what they read must be safe to read there.
class ZVRESMGT_EXPORT DevMDStdDevice : public DevMDStdAccessPrtcl,
                                       public DevMDStdSyncSeqPrtcl,
                                       public DevMDStdStreamPrtcl,
                                       public DevMDStdPropertyPrtcl
{
public:
    /// The default returns a latency of zero.
    DtTime getLatency() override;
    /// The default returns the unset mark, for a device that gives its children nothing to lock to.
    DtTimeMark getMark() override;

protected:
    explicit DevMDStdDevice(LiString const &name);
    /// Makes a device with a queue of another capacity, or with an observer.
    DevMDStdDevice(LiString const &name, RCShdPtr<DevMDStdFifo> const &fifo);
    /// Makes a device with a thread body of its own, which must serve that queue. `performWork` and
    /// `performFailed` are not called.
    DevMDStdDevice(LiString const &name, RCShdPtr<DevMDStdFifo> const &fifo,
                   ObjPtr<DevMDStdThreadProtocol> body);
    ~DevMDStdDevice() override;

    RCShdPtr<DevMDStdFifo> const &getFifo() const { return _fifo; }

    /// The steps of the device's life. The defaults do nothing. A step is finished when its
    /// function returns, unless it calls `takeCompletion`. `performOpen` and `performClose` throw
    /// what `open` and `close` have thrown.
    virtual void open();
    virtual void close();
    virtual void start();
    /// Locks the device to the mark of its parent. The default calls `sync`.
    virtual void syncToMark(DtTimeMark const &mark);
    /// Locks the device as the root, with the largest latency of the sequence. The default calls
    /// `sync`.
    virtual void syncWithLatency(DtTime const &latency);
    /// Further steps, whose defaults do nothing. Only the defaults of `syncToMark` and
    /// `syncWithLatency` call `sync`.
    virtual void sync();
    virtual void recover();
    virtual void stop();
    virtual void abort();

    /// Called by the standard body, see `DevMDStdLoopThreadProtocol`.
    virtual double performWork();
    virtual void performFailed(std::exception_ptr const &failure);

    /// Detaches the completion of the present step. Use it in a step from `start` to `abort` that
    /// takes longer than its function. The step is finished when the device executes the
    /// completion. Fails an assertion outside of a step.
    [[nodiscard]] ObjPtrRet<DevACO> takeCompletion();
    /// Reports that the device has lost its lock and wants a recovery. Must be called on the
    /// device's thread.
    ///
    /// Has an effect from `start` on, until `stop` or `abort` is finished, also if one of these has
    /// thrown. If the device took the completion of `stop` or `abort` and runs it later, it must
    /// not call `reportRecover` or `reportAbort` after that.
    ///
    /// With `DevMgrSyncSeqAcc` a recovery is legal only while the device is in lock. If it meets a
    /// stop on its way, it is an illegal event, and the sequence does not end.
    /// `DevMgrSeqSupervisor` handles it in any state.
    void reportRecover();
    /// Reports that the device cannot go on. See `reportRecover` for when it may be called.
    void reportAbort();

private:
    friend class Detail::HandlerAccessANOFactory<DevMDStdDevice>;

    class SyncSeqANOFactory;
    class Body;
    class TakenCompletion;

    template <class Step>
    ObjPtrRet<DevMDStdANO> makeStep(Step step);
    template <class Step>
    ObjPtrRet<DevMDStdANO> makeLastStep(Step step);
    void endReports();

    RCShdPtr<DevMDStdFifo> _fifo;
    DevMDStdANO *_request = nullptr;  // of the present step
    bool _isTaken = false;            // the completion of that step
    RCShdPtr<TakenCompletion> _taken; // by the present step
    ObjPtr<DevANO> _recover;
    ObjPtr<DevANO> _abort;
};

} // namespace Zv
