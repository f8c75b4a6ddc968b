#include "resmgt/deviceManager/devMgrDevice.private.h"

#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceProtocol/devMDStdAccessPrtcl.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "zvbase/failures.h"
#include "zvbase/platform/shared.h"
#include "zvbase/sleeper.h"
#include "zvbase/traceCaught.private.h"

namespace Zv {

// ---- DevMgrLeftBehind

namespace {

constinit ZvPlatform::Shared<DevMgrLeftBehind *> newest{nullptr};

} // namespace

void DevMgrLeftBehind::enter()
{
    _next = newest.load(ZvPlatform::Order::RELAXED);
    while (!newest.compare_exchange_strong(_next, this, ZvPlatform::Order::RELAXED,
                                           ZvPlatform::Order::RELAXED)) {
    }
}

// ---- DevMgrDevice

namespace {

/// Stack of the thread that calls `performClose`, in bytes. A device may need as much as on a
/// thread of the application.
constexpr unsigned CLOSER_STACK = 1 << 20;

} // namespace

class DevMgrDevice::Closer final : public MtThreadProtocol
{
public:
    explicit Closer(DevMgrDevice &device) : _device(&device) {}

    void performExecute(MtThread *) override { _device->performClose(); }

private:
    RCShdPtr<DevMgrDevice> _device;
};

DevMgrDevice::DevMgrDevice(LiString const &name, RCShdPtr<DevMDPrtcl> const &prtcl,
                           RCShdPtr<DevMgrProgress> const &progress)
    : _name(name),
      _prtcl(prtcl),
      _access(rcDynamicCast<DevMDAccessPrtcl>(prtcl)),
      _progress(progress),
      _callLock("DevMgrDevice calls")
{}

DevMgrDevice::~DevMgrDevice() = default;

DevMgrDevice::State DevMgrDevice::getState() const
{
    return _state.load(ZvPlatform::Order::ACQUIRE);
}

std::exception_ptr DevMgrDevice::getOpenFailure() const
{
    return getState() == UNOPENED ? _openFailure : nullptr;
}

void DevMgrDevice::open()
{
    if (_access.isNull())
        return setState(UNOPENED);
    _access->performOpen();
    setState(OPEN);
}

void DevMgrDevice::failToOpen(std::exception_ptr const &failure)
{
    _openFailure = failure;
    try {
        if (auto * const standard = dynamic_cast<DevMDStdAccessPrtcl *>(_access.get()))
            standard->closeUnopened();
    } catch (...) {
        traceCaught(__FILE__, __LINE__);
    }
    setState(UNOPENED);
}

DevMgrDevice::Call::Call(DevMgrDevice &device) : _device(device)
{
    LkGuard const guard(device._callLock);
    State const state = device.getState();
    if (state == CLOSING || state == CLOSED || state == UNCLOSED)
        ZV_THROW(DevMgrEx::ManagerClosed);
    ++device._nbCalls;
}

DevMgrDevice::Call::~Call()
{
    _device.endCall();
}

void DevMgrDevice::endCall()
{
    {
        LkGuard const guard(_callLock);
        if (--_nbCalls > 0 || !_isClosingAwaited)
            return;
        if (!_isLeftToCall)
            return _progress->post();
        setState(CLOSING);
    }
    performClose();
    try {
        if (_closeFailure)
            std::rethrow_exception(_closeFailure);
    } catch (...) {
        traceCaught(__FILE__, __LINE__);
    }
}

bool DevMgrDevice::beginClosing(bool isLeftToCall)
{
    LkGuard const guard(_callLock);
    if (getState() != OPEN)
        return false;
    _isClosingAwaited = true;
    _isLeftToCall = isLeftToCall && _nbCalls > 0;
    if (_nbCalls > 0)
        return false;
    setState(CLOSING);
    return true;
}

void DevMgrDevice::close()
{
    if (!beginClosing(true))
        return;
    _access->performClose();
    setState(CLOSED);
}

void DevMgrDevice::startToClose()
{
    if (beginClosing(false))
        startCloser();
}

void DevMgrDevice::startCloser()
{
    try {
        _closer = MtThreadFactory::getInstance().createThread(
            "DevMgr close", makeObj<Closer>(*this), true, CLOSER_STACK);
        _closer->start();
    } catch (...) {
        // `start` may throw after the thread has begun to run.
        if (!_closer.isNull() && _closer->isRunning())
            return traceCaught(__FILE__, __LINE__);
        _closer = nullptr;
        _closeFailure = std::current_exception();
        setState(UNCLOSED);
    }
}

bool DevMgrDevice::hasClosed() const
{
    State const state = getState();
    return state == UNOPENED || state == CLOSED || state == UNCLOSED;
}

void DevMgrDevice::endClosing()
{
    _closer = nullptr;
}

void DevMgrDevice::leaveBehind()
{
    if (beginClosing(true)) // no call is left since then
        startCloser();
    static_cast<void>(_closer.release());
    DevMgrLeftBehind::keep(RCShdPtr<DevMgrDevice>(this));
}

void DevMgrDevice::release()
{
    {
        LkGuard const guard(_callLock);
        if (_isLeftToCall)
            return;
    }
    _access = nullptr;
    _prtcl = nullptr;
}

void DevMgrDevice::performClose()
{
    double const start = Sleeper::getInstance().getTime();
    try {
        _access->performClose();
    } catch (...) {
        _closeFailure = std::current_exception();
    }
    _secondsToClose = Sleeper::getInstance().getTime() - start;
    setState(CLOSED);
}

void DevMgrDevice::setState(State state)
{
    _state.store(state, ZvPlatform::Order::RELEASE);
    _progress->post();
}

} // namespace Zv
