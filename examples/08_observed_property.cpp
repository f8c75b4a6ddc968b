// An observed property: a desk shows the gain of a fader, and follows each change.
//
// The fader limits the gain, and notifies of a change without its value. The observer runs on the
// manager's thread and only takes note. The client's own thread reads the value.
//
// Prints:
//
//     the gain is 0 dB
//     set to -6 dB, the gain is -6 dB
//     set to 20 dB, the gain is 12 dB
//     refused: Not a registered object.

#include <resmgt/deviceManager.h>
#include <resmgt/deviceProtocol.h>
#include <resmgt/locks.h>
#include <zvbase/zvbase.h>

#include <algorithm>
#include <iostream>

using namespace Zv;

namespace {

/// A fader with the property `gain`. Its functions run on the thread of the fader.
class Fader : public DevMDStdDevice
{
public:
    explicit Fader(LiString const &name) : DevMDStdDevice(name)
    {
        _property = makeProperty<double>(
            "gain", "In dB, from -60 to 12", getFifo(), [this](double &gain) { gain = _gain; },
            [this](double gain) {
                _gain = std::clamp(gain, -60.0, 12.0);
                _property->changed();
            });
        ObjPtr<DevMDStdPropertySetBuilder> const properties(getPropertySetBuilder());
        properties->addProperty(_property);
    }

private:
    double _gain = 0;
    RCShdPtr<DevMDStdProperty<double>> _property;
};

class Notes : public DevMgrPropertyObserver
{
public:
    void update(DevMgrPropertyObserverHint const &) override { _changes.post(); }
    /// Returns false if there is no change within 10 seconds.
    [[nodiscard]] bool waitForChange() { return _changes.timedWait(10); }

private:
    LkSema _changes{"changes of the gain", 0};
};

void follow()
{
    using Gain = DevMgrPropertyValueUtil<double>;
    DevRegistry::getInstance().add(makeRegistryEntry(
        "fader", "Sets a gain", [](LiString const &name) { return makeShd<Fader>(name); }));
    ObjPtr<DevMgr> const manager = DevMgr::create();
    ObjPtr<DevMgrPropertyAcc> const properties = manager->createPropertyAcc();
    auto const notes = makeShd<Notes>();
    DevMgrPropertyObserverUtil::attachObserver(*properties, "fader:gain", notes);
    double gain = 0;
    Gain::getValue(*properties, "fader:gain", gain);
    std::cout << "the gain is " << gain << " dB\n";
    for (double const wanted : {-6.0, 20.0}) {
        Gain::setValue(*properties, "fader:gain", wanted);
        if (!notes->waitForChange())
            std::cerr << "The fader needs longer than usual.\n";
        Gain::getValue(*properties, "fader:gain", gain);
        std::cout << "set to " << wanted << " dB, the gain is " << gain << " dB\n";
    }
    Gain::setValue(*properties, "fader:pan", 0.5);
}

} // namespace

int main()
{
    InPackageScope const packages;
    try {
        follow();
    } catch (DevMgrEx const &failure) {
        std::cout << "refused: " << failure.getReason() << '\n';
    }
}
