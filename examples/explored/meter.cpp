// An explored device: a meter keeps the loudest peak in each order of its thread and its
// client's.
//
// `RacyMeter` is what the meter was at first. Its fault shows in few orders of the threads, and
// the explorer finds one of them.

#include <explore/explore.h>
#include <resmgt/deviceManager.h>
#include <resmgt/deviceProtocol.h>
#include <resmgt/locks.h>
#include <zvbase/zvbase.h>

#include <algorithm>
#include <iterator>
#include <utility>

using namespace Zv;

namespace {

constexpr double PEAKS[] = {0.25, 1.0, 0.5}; // of the blocks of a recording
constexpr double BLOCK = 0.01;               // seconds

/// Measures a recording, block by block, on the device's thread.
class Meter : public DevMDStdDevice
{
public:
    /// `complete` is set after the last block, and must outlive the device.
    Meter(LiString const &name, LkEvent &complete) : DevMDStdDevice(name), _complete(complete) {}

    /// Returns the highest peak since the last call. Any thread may call it.
    virtual double takePeak()
    {
        LkGuard const guard(_lock);
        return std::exchange(_peak, 0);
    }

protected:
    double getPeak() const
    {
        LkGuard const guard(_lock);
        return _peak;
    }
    void setPeak(double peak)
    {
        LkGuard const guard(_lock);
        _peak = peak;
    }

    void sync() override { _next = std::begin(PEAKS); }
    double performWork() override
    {
        if (_next == std::end(PEAKS))
            return DevMDStdLoopThreadProtocol::NO_WORK;
        setPeak(std::max(getPeak(), *_next)); // only this thread raises the peak
        if (++_next == std::end(PEAKS))
            _complete.set();
        return BLOCK;
    }

private:
    LkEvent &_complete;
    double const *_next = std::end(PEAKS);
    LkLock const _lock{"peak"};
    double _peak ZV_GUARDED_BY(_lock) = 0;
};

/// Each access has the lock. But the peak of a block between the two is lost.
class RacyMeter : public Meter
{
public:
    using Meter::Meter;

    double takePeak() override
    {
        double const peak = getPeak();
        setPeak(0);
        return peak;
    }
};

/// A client that shows the peak every 10 milliseconds. It must get the loudest one.
template <class Device>
void takePeaks()
{
    InPackageScope const packages;
    LkEvent complete("all blocks", false);
    DevRegistry::getInstance().add(
        makeRegistryEntry("meter", "Measures peaks", [&complete](LiString const &name) {
            return makeShd<Device>(name, complete);
        }));
    ObjPtr<DevMgr> const manager = DevMgr::create();
    ObjPtr<DevMgrSeqSupervisor> const sequence = manager->createSeqSupervisor("( meter )");
    RCShdPtr<DevMDPrtcl> const device = manager->getPrtcl("meter");
    auto &meter = dynamic_cast<Device &>(*device);
    sequence->start();
    ZV_HOLDS(sequence->waitLocked(10)); // seconds

    double loudest = 0;
    do
        loudest = std::max(loudest, meter.takePeak());
    while (!complete.timedWait(BLOCK));
    loudest = std::max(loudest, meter.takePeak());
    ZV_HOLDS(loudest == 1.0);
    sequence->stop(10);
}

} // namespace

ZV_EXPLORED(MeterKeepsTheLoudestPeak, {.schedules = 300, .hasty = false})
{
    takePeaks<Meter>();
}

ZV_EXPLORED(RacyMeterLosesAPeak, {.schedules = 300, .hasty = false, .finds = "does not hold"})
{
    takePeaks<RacyMeter>();
}
