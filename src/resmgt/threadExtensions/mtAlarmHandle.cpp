#include "resmgt/threadExtensions/mtAlarmHandle.h"

#include "resmgt/locks/lkGuard.h"
#include "zvbase/failures.h"
#include "zvbase/platform/shared.h"

namespace Zv {

namespace {

using Guard = LkGuard<LkLock const>;

} // namespace

// ---- MtAlarmHandle

MtAlarmHandle::MtAlarmHandle() : _lock("MtAlarmHandle") {}

MtAlarmHandle::~MtAlarmHandle() noexcept(false) = default;

RCShdPtr<MtAlarmHandle> MtAlarmHandle::create()
{
    return new MtAlarmHandle;
}

void MtAlarmHandle::setCallback(Callback *callback)
{
    ZV_ASSERT(callback);
    Guard const guard(_lock);
    if (!isRegistered())
        _callback = callback;
}

void MtAlarmHandle::setAlarmTime(double alarmTime)
{
    Guard const guard(_lock);
    if (isRegistered())
        return;
    _alarmTime = alarmTime;
    _useDuration = false;
}

void MtAlarmHandle::setDuration(double duration)
{
    Guard const guard(_lock);
    if (isRegistered())
        return;
    _duration = duration;
    _useDuration = true;
}

void MtAlarmHandle::setRepeatDuration(double repeatDuration)
{
    Guard const guard(_lock);
    if (!isRegistered())
        _repeatDuration = repeatDuration;
}

void MtAlarmHandle::setRequestedRepeats(unsigned requestedRepeats)
{
    Guard const guard(_lock);
    if (!isRegistered())
        _requestedRepeats = requestedRepeats;
}

double MtAlarmHandle::getTimeRegistered() const
{
    Guard const guard(_lock);
    return _timeRegistered;
}

double MtAlarmHandle::getAlarmTime() const
{
    Guard const guard(_lock);
    return _alarmTime;
}

double MtAlarmHandle::getDuration() const
{
    Guard const guard(_lock);
    return _duration;
}

double MtAlarmHandle::getRepeatDuration() const
{
    Guard const guard(_lock);
    return _repeatDuration;
}

unsigned MtAlarmHandle::getRequestedRepeats() const
{
    Guard const guard(_lock);
    return _requestedRepeats;
}

unsigned MtAlarmHandle::getRepeatCount() const
{
    Guard const guard(_lock);
    return _repeatCount;
}

bool MtAlarmHandle::hasOccurred() const
{
    Guard const guard(_lock);
    return _occurred;
}

bool MtAlarmHandle::isRegistered() const
{
    return _registered.load(ZvPlatform::Order::ACQUIRE);
}

void MtAlarmHandle::setRegistered(bool registered)
{
    _registered.store(registered, ZvPlatform::Order::RELEASE);
}

void MtAlarmHandle::setRegisteredAlarmTime(double alarmTime)
{
    Guard const guard(_lock);
    _alarmTime = alarmTime;
}

void MtAlarmHandle::callCallback(bool goingAway)
{
    Callback *callback;
    {
        Guard const guard(_lock);
        ZV_ASSERT(_callback);
        if (_occurred)
            ++_repeatCount;
        else
            _occurred = true;
        callback = _callback;
    }
    callback->performAlarm(RCShdPtr<MtAlarmHandle>(this), goingAway);
}

std::optional<double> MtAlarmHandle::prepareForRegistration(double now)
{
    Guard const guard(_lock);
    if (isRegistered() || !_callback)
        return std::nullopt;
    _timeRegistered = now;
    setRegistered(true);
    _occurred = false;
    if (_useDuration)
        _alarmTime = now + _duration;
    else
        _duration = _alarmTime - now;
    return _alarmTime;
}

// ---- MtAlarmHandle::Callback

MtAlarmHandle::Callback::~Callback() noexcept(false) = default;

// ---- MtAlarmHandleManipulator

MtAlarmHandleManipulator::~MtAlarmHandleManipulator() noexcept(false) = default;

RCShdPtr<MtAlarmHandle> MtAlarmHandleManipulator::createHandle()
{
    return MtAlarmHandle::create();
}

void MtAlarmHandleManipulator::setRegistered(MtAlarmHandle &handle, bool registered)
{
    handle.setRegistered(registered);
}

void MtAlarmHandleManipulator::setRegisteredAlarmTime(MtAlarmHandle &handle, double alarmTime)
{
    handle.setRegisteredAlarmTime(alarmTime);
}

void MtAlarmHandleManipulator::callCallback(MtAlarmHandle &handle, bool goingAway)
{
    handle.callCallback(goingAway);
}

std::optional<double> MtAlarmHandleManipulator::prepareForRegistration(MtAlarmHandle &handle,
                                                                       double now)
{
    return handle.prepareForRegistration(now);
}

unsigned &MtAlarmHandleManipulator::getNbDeregistering(MtAlarmHandle &handle)
{
    return handle._nbDeregistering;
}

} // namespace Zv
