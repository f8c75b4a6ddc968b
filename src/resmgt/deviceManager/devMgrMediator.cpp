#include "resmgt/deviceManager/devMgrMediator.h"

#include "resmgt/deviceManager/devMgrDevice.private.h"
#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceManager/devMgrFifo.private.h"
#include "resmgt/deviceManager/devRegistry.h"
#include "resmgt/locks/lkGuard.h"
#include "zvbase/containers.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/platform/shared.h"
#include "zvbase/sleeper.h"

#include <algorithm>

namespace Zv {

namespace {

constexpr int FIFO_CAPACITY = 25;

double now()
{
    return Sleeper::getInstance().getTime();
}

/// Waits until the condition holds. Checks it each time that the state of a device has changed.
/// Returns false if it does not hold at the moment `end`.
template <class Condition>
bool waitUntil(DevMgrProgress &progress, double end, Condition condition)
{
    while (!condition())
        if (double const seconds = end - now(); !(seconds > 0) || !progress.timedWait(seconds))
            return condition();
    return true;
}

/// Closes the devices one after the other. If a device does not close within its share of the time,
/// the next one has its turn. After the last turn, the devices that are still open have the rest of
/// the time together.
void closeInTurn(Vector<RCShdPtr<DevMgrDevice>> const &devices, DevMgrProgress &progress,
                 double end)
{
    auto const tryToClose = [](DevMgrDevice &device) {
        device.startToClose(); // it may have been opened only now
        return device.hasClosed();
    };
    for (std::size_t i = 0; i < devices.size(); ++i) {
        double const share = (end - now()) / static_cast<double>(devices.size() - i);
        waitUntil(progress, now() + share, [&] { return tryToClose(*devices[i]); });
    }
    waitUntil(progress, end, [&] {
        bool areClosed = true;
        for (auto const &device : devices)
            areClosed = tryToClose(*device) && areClosed;
        return areClosed;
    });
}

/// Releases a device that was closed or was never open, and leaves any other behind. Returns the
/// device's line of the report.
DevMgrCloseReport::Device finish(DevMgrDevice &device, DevMgrDevice::State state)
{
    using End = DevMgrCloseReport::End;
    DevMgrCloseReport::Device result{device.getName(), End::CLOSED, nullptr, 0};
    switch (state) {
    case DevMgrDevice::CLOSED:
        device.endClosing();
        result.failure = device.getCloseFailure();
        result.seconds = device.getSecondsToClose();
        [[fallthrough]];
    case DevMgrDevice::UNOPENED: {
        FirstFailure failure(result.failure);
        failure.attempt([&device] { device.release(); });
        result.failure = failure.get();
        result.end = result.failure ? End::FAILED : End::CLOSED;
        break;
    }
    case DevMgrDevice::UNCLOSED:
        result.failure = device.getCloseFailure();
        [[fallthrough]];
    case DevMgrDevice::OPEN:
    case DevMgrDevice::CLOSING:
        result.end = End::NOT_CLOSED;
        device.leaveBehind();
        break;
    case DevMgrDevice::OPENING:
        result.end = End::NOT_OPENED;
        device.leaveBehind();
        break;
    }
    return result;
}

} // namespace

struct DevMgrMediator::PrtclMap : HashMap<LiString, Entry>
{};

DevMgrMediator::DevMgrMediator()
    : _configLock("DevMgrMediator ConfigLock"),
      _prtclMapLock("DevMgrMediator MapLock"),
      _prtclMap(new PrtclMap),
      _progress(new DevMgrProgress),
      _fifo(new DevMgrFifo(FIFO_CAPACITY))
{
    _thread = makeObj<DevMgrThread>(_fifo);
}

DevMgrMediator::~DevMgrMediator() noexcept(false)
    ZV_NO_THREAD_SAFETY_ANALYSIS // no other owner remains
{
    bool const isDestroyedOnDevMgrANO = _thread->isCurrentThread();
    if (isDestroyedOnDevMgrANO) {
        // This thread cannot wait for its own end, nor for devices that may wait for it. The thread
        // and the devices are left behind.
        static_cast<void>(_thread.release());
        for (auto const &device : _devices)
            DevMgrLeftBehind::keep(device);
        _prtclMap->clear();
        _devices.clear();
    }
    ZV_ASSERT_IN_DESTRUCTOR(!isDestroyedOnDevMgrANO);
    FirstFailure failure;
    for (auto device = _devices.rbegin(); device != _devices.rend(); ++device)
        failure.attempt([&device] { (*device)->close(); });
    _prtclMap->clear(); // before the last reference to a device is released, which may fail
    for (auto device = _devices.rbegin(); device != _devices.rend(); ++device)
        failure.attempt([&device] { (*device)->release(); });
    failure.rethrow();
}

void DevMgrMediator::setFailureHandler(RCShdPtr<DevMgrFailureHandler> const &handler)
{
    expectNotClosed();
    _thread->setFailureHandler(handler);
}

DevMgrCloseReport DevMgrMediator::close(double seconds)
{
    ZV_ASSERT(!_thread->isCurrentThread());
    double const end = now() + seconds;
    DevMgrCloseReport report;
    Vector<RCShdPtr<DevMgrDevice>> devices;
    {
        LkGuard const guard(_prtclMapLock);
        expectNotClosed();
        devices.assign(_devices.rbegin(), _devices.rend());
        report.devices.reserve(devices.size());
        _isClosed.store(true, ZvPlatform::Order::RELAXED);
    }
    // The thread must end first. After that, no observer and no sequence is called, and no device
    // waits for room in the queue.
    try {
        report.isThreadLeftBehind = !_thread->end(seconds / 2);
    } catch (...) { // `end` has had no effect
        _isClosed.store(false, ZvPlatform::Order::RELAXED);
        throw;
    }
    _isThreadLeftBehind.store(report.isThreadLeftBehind, ZvPlatform::Order::RELAXED);
    closeInTurn(devices, *_progress, end);

    {
        LkGuard const guard(_prtclMapLock);
        _prtclMap->clear();
        _devices.clear();
    }
    for (auto const &device : devices) {
        DevMgrDevice::State const state = device->getState();
        DevMgrCloseReport::Device const result = finish(*device, state);
        if (state != DevMgrDevice::UNOPENED || result.failure)
            report.devices.push_back(result);
    }
    return report;
}

bool DevMgrMediator::isClosed() const
{
    return _isClosed.load(ZvPlatform::Order::RELAXED);
}

void DevMgrMediator::expectNotClosed() const
{
    if (isClosed())
        ZV_THROW(DevMgrEx::ManagerClosed);
}

LkLock const &DevMgrMediator::getLock() const
{
    expectNotClosed();
    return _configLock;
}

bool DevMgrMediator::isThreadLeftBehind() const
{
    return _isThreadLeftBehind.load(ZvPlatform::Order::RELAXED);
}

bool DevMgrMediator::isPrtclCreated(LiString const &name) const
{
    return !find(name).device.isNull();
}

RCShdPtr<DevMDPrtcl> DevMgrMediator::getPrtcl(LiString const &name) const
{
    return get(name).prtcl;
}

RCShdPtr<DevMgrDevice> DevMgrMediator::getDevice(LiString const &name) const
{
    return get(name).device;
}

std::exception_ptr DevMgrMediator::getOpenFailure(LiString const &name) const
{
    return get(name).device->getOpenFailure();
}

void DevMgrMediator::createPrtcl(LiString const &name)
{
    expectNotClosed();
    if (auto const [known, device] = find(name); !device.isNull()) {
        if (known.isNull())
            std::rethrow_exception(device->getOpenFailure());
        return;
    }
    RCShdPtr<DevMDPrtcl> const prtcl = DevRegistry::getInstance().createPrtcl(name);
    auto const device = makeShd<DevMgrDevice>(name, prtcl, _progress);
    add(name, {prtcl, device});
    try {
        ZV_ASSERT(!prtcl.isNull());
        device->open();
    } catch (...) {
        device->failToOpen(std::current_exception());
        throw;
    }
    moveToEnd(device);
    expectNotClosed();
}

RCShdPtr<DevMDPrtcl> DevMgrMediator::obtainPrtcl(LiString const &name)
{
    expectNotClosed();
    if (auto const [known, device] = find(name); !known.isNull() && !device->isOpening())
        return known;
    LkGuard const guard(_configLock);
    createPrtcl(name);
    return getPrtcl(name);
}

auto DevMgrMediator::find(LiString const &name) const -> Entry
{
    LkGuard const guard(_prtclMapLock);
    auto const entry = _prtclMap->find(name);
    return entry == _prtclMap->end() ? Entry() : entry->second;
}

auto DevMgrMediator::get(LiString const &name) const -> Entry
{
    Entry entry = find(name);
    if (entry.device.isNull()) {
        expectNotClosed(); // if it was closed, that has removed the device
        ZV_THROW(DevMgrEx::NameNotFound);
    }
    return entry;
}

void DevMgrMediator::add(LiString const &name, Entry const &entry)
{
    LkGuard const guard(_prtclMapLock);
    expectNotClosed();
    _devices.push_back(entry.device);
    try {
        _prtclMap->emplace(name, entry);
    } catch (...) {
        _devices.pop_back();
        throw;
    }
}

/// Makes an opened device the newest one. Its opening may have opened other devices.
void DevMgrMediator::moveToEnd(RCShdPtr<DevMgrDevice> const &device)
{
    LkGuard const guard(_prtclMapLock);
    auto const place = std::find(_devices.rbegin(), _devices.rend(), device);
    if (place != _devices.rend())
        std::rotate(place.base() - 1, place.base(), _devices.end());
}

} // namespace Zv
