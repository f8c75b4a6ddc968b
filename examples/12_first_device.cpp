// A first device: a generator of a tone that computes blocks of samples while it is in lock.
//
// The guide "Your first device" builds it step by step.
//
// Prints:
//
//     generator starts
//     the peak of 100 blocks is 0.25
//     generator stops
//     generator is in state final

#include <resmgt/deviceManager.h>
#include <resmgt/deviceProtocol.h>
#include <resmgt/locks.h>
#include <zvbase/zvbase.h>

#include <algorithm>
#include <cmath>
#include <iostream>

using namespace Zv;

namespace {

class Generator : public DevMDStdDevice
{
public:
    /// `complete` is set after 100 blocks, and must outlive the device.
    Generator(LiString const &name, LkEvent &complete) : DevMDStdDevice(name), _complete(complete)
    {
        ObjPtr<DevMDStdPropertySetBuilder> const properties(getPropertySetBuilder());
        properties->addProperty(makeProperty<double>(
            "amplitude", "From 0 to 1", getFifo(),
            [this](double &amplitude) { amplitude = _amplitude; },
            [this](double amplitude) { _amplitude = std::clamp(amplitude, 0.0, 1.0); }));
        properties->addProperty(makeProperty<double>("peak", "The highest sample so far", getFifo(),
                                                     [this](double &peak) { peak = _peak; }));
    }

protected:
    void start() override { std::cout << "generator starts\n"; }
    void sync() override { _nbLeft = 100; }
    void stop() override
    {
        _nbLeft = 0;
        std::cout << "generator stops\n";
    }
    void abort() override { _nbLeft = 0; }
    double performWork() override
    {
        if (_nbLeft == 0)
            return DevMDStdLoopThreadProtocol::NO_WORK;
        computeBlock();
        if (--_nbLeft == 0)
            _complete.set();
        return 0; // there may be more to do
    }

private:
    void computeBlock()
    {
        for (int i = 0; i < 480; ++i)
            _peak = std::max(_peak, _amplitude * std::sin(_angle += 0.125));
    }

    LkEvent &_complete;
    int _nbLeft = 0; // blocks
    double _amplitude = 1;
    double _angle = 0;
    double _peak = 0;
};

void run()
{
    LkEvent complete("100 blocks", false);
    DevRegistry::getInstance().add(
        makeRegistryEntry("generator", "Computes a tone", [&complete](LiString const &name) {
            return makeShd<Generator>(name, complete);
        }));
    ObjPtr<DevMgr> const manager = DevMgr::create();
    ObjPtr<DevMgrSeqSupervisor> const sequence = manager->createSeqSupervisor("( generator )");
    ObjPtr<DevMgrPropertyAcc> const properties = manager->createPropertyAcc();

    using Number = DevMgrPropertyValueUtil<double>;
    Number::setValue(*properties, "generator:amplitude", 0.25);
    sequence->start();
    if (!sequence->waitLocked(10) || !complete.timedWait(10)) // seconds
        std::cerr << "The generator needs longer than usual.\n";
    double peak = 0;
    Number::getValue(*properties, "generator:peak", peak);
    std::cout << "the peak of 100 blocks is " << std::round(100 * peak) / 100 << '\n';
    for (DevSeqDeviceStatus const &device : sequence->stop(10).devices)
        std::cout << device.name << " is in state " << device.state << '\n';
}

} // namespace

int main()
{
    InPackageScope const packages; // first in every application
    try {
        run();
    } catch (ExBase const &failure) {
        std::cerr << failure.getReason() << '\n';
        return 1;
    }
}
