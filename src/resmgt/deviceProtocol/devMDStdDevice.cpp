#include "resmgt/deviceProtocol/devMDStdDevice.h"

#include "zvbase/failures.h"
#include "zvbase/scope.private.h"

namespace Zv {

/// A completion that the device has detached. It can still be told that its step has failed.
class DevMDStdDevice::TakenCompletion final : public RCBase<LkCounter<long>>
{
public:
    explicit TakenCompletion(ObjPtr<DevFailableACO> aco) : _aco(aco) {}

    DevFailableACO &get() const { return *_aco; }

private:
    ObjPtr<DevFailableACO> _aco;
};

// If the device has detached the completion, the request cannot tell it that the step has failed.
// So this step does.
template <class Step>
ObjPtrRet<DevMDStdANO> DevMDStdDevice::makeStep(Step step)
{
    return makeANO([this, step = std::move(step)](DevMDStdANO &request) mutable {
        _request = &request;
        _isTaken = false;
        AtScopeEnd const forget([this] {
            _request = nullptr;
            _taken = nullptr;
        });
        try {
            step();
        } catch (...) {
            if (_taken.isNull())
                throw;
            _taken->get().performFail(std::current_exception());
        }
    });
}

// A step that throws has finished, too. Reports after it have no effect.
template <class Step>
ObjPtrRet<DevMDStdANO> DevMDStdDevice::makeLastStep(Step step)
{
    return makeStep([this, step = std::move(step)] {
        AtScopeEnd const end([this] { endReports(); });
        step();
    });
}

class DevMDStdDevice::SyncSeqANOFactory final : public DevMDStdSyncSeqANOFactory
{
public:
    explicit SyncSeqANOFactory(DevMDStdDevice &device) : _device(device) {}

    ObjPtrRet<DevMDStdANO> createStartANO(ObjPtr<DevANO> recover, ObjPtr<DevANO> abort) override
    {
        return _device.makeStep(
            [&device = _device, recover = std::move(recover), abort = std::move(abort)]() mutable {
                device._recover = std::move(recover);
                device._abort = std::move(abort);
                device.start();
            });
    }
    ObjPtrRet<DevMDStdANO> createSyncANO(DtTimeMark const &mark) override
    {
        return _device.makeStep([&device = _device, mark] { device.syncToMark(mark); });
    }
    ObjPtrRet<DevMDStdANO> createSyncANO(DtTime const &latency) override
    {
        return _device.makeStep([&device = _device, latency] { device.syncWithLatency(latency); });
    }
    ObjPtrRet<DevMDStdANO> createRecoverANO() override
    {
        return _device.makeStep([&device = _device] { device.recover(); });
    }
    ObjPtrRet<DevMDStdANO> createStopANO() override
    {
        return _device.makeLastStep([&device = _device] { device.stop(); });
    }
    ObjPtrRet<DevMDStdANO> createAbortANO() override
    {
        return _device.makeLastStep([&device = _device] { device.abort(); });
    }

private:
    DevMDStdDevice &_device;
};

class DevMDStdDevice::Body final : public DevMDStdLoopThreadProtocol
{
public:
    Body(RCShdPtr<DevMDStdFifo> const &fifo, DevMDStdDevice &device)
        : DevMDStdLoopThreadProtocol(fifo), _device(device)
    {}

protected:
    double performWork() override { return _device.performWork(); }
    void performFailed(std::exception_ptr const &failure) override
    {
        _device.performFailed(failure);
    }

private:
    DevMDStdDevice &_device;
};

DevMDStdDevice::DevMDStdDevice(LiString const &name) : DevMDStdDevice(name, makeShd<DevMDStdFifo>())
{}

DevMDStdDevice::DevMDStdDevice(LiString const &name, RCShdPtr<DevMDStdFifo> const &fifo)
    : DevMDStdDevice(name, fifo, makeObj<Body>(fifo, *this))
{}

DevMDStdDevice::DevMDStdDevice(LiString const &name, RCShdPtr<DevMDStdFifo> const &fifo,
                               ObjPtr<DevMDStdThreadProtocol> body)
    : DevMDStdAccessPrtcl(name, fifo, body,
                          makeObj<Detail::HandlerAccessANOFactory<DevMDStdDevice>>(*this)),
      DevMDStdSyncSeqPrtcl(name, fifo, makeObj<SyncSeqANOFactory>(*this)),
      DevMDStdStreamPrtcl(name),
      DevMDStdPropertyPrtcl(name),
      _fifo(fifo)
{}

DevMDStdDevice::~DevMDStdDevice() = default;

DtTime DevMDStdDevice::getLatency()
{
    return DtTime();
}

DtTimeMark DevMDStdDevice::getMark()
{
    return DtTimeMark();
}

void DevMDStdDevice::open() {}

void DevMDStdDevice::close() {}

void DevMDStdDevice::start() {}

void DevMDStdDevice::syncToMark(DtTimeMark const &)
{
    sync();
}

void DevMDStdDevice::syncWithLatency(DtTime const &)
{
    sync();
}

void DevMDStdDevice::sync() {}

void DevMDStdDevice::recover() {}

void DevMDStdDevice::stop() {}

void DevMDStdDevice::abort() {}

double DevMDStdDevice::performWork()
{
    return DevMDStdLoopThreadProtocol::NO_WORK;
}

void DevMDStdDevice::performFailed(std::exception_ptr const &failure)
{
    std::rethrow_exception(failure);
}

ObjPtrRet<DevACO> DevMDStdDevice::takeCompletion()
{
    ZV_ASSERT(_request != nullptr);
    _isTaken = true;
    ObjPtr<DevACO> aco = _request->releaseACO();
    auto * const failable = dynamic_cast<DevFailableACO *>(aco.get());
    if (!failable)
        return aco;
    static_cast<void>(aco.release());
    _taken = makeShd<TakenCompletion>(ObjPtr<DevFailableACO>(failable));
    return makeACO([taken = _taken] { taken->get().performExecute(); });
}

// The machine of a device that has ended accepts no report. A second report would be an unhandled
// exception on the manager's thread.
void DevMDStdDevice::endReports()
{
    if (_isTaken)
        return;
    _recover = nullptr;
    _abort = nullptr;
}

void DevMDStdDevice::reportRecover()
{
    if (_recover)
        _recover->performExecute();
}

void DevMDStdDevice::reportAbort()
{
    if (_abort)
        _abort->performExecute();
}

} // namespace Zv
