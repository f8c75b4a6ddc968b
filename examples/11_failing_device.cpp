// A supervised tree with a failing device: a camera without a signal, and a second attempt.
//
// The supervisor brings the tree to an end within the limits of the client, and reports how each
// device has ended. A device that has failed must be closed. So the second attempt has a manager of
// its own.
//
// Prints:
//
//     Device "camera" has failed: no signal
//     recorder: aborted
//     camera: failed, no signal
//     player: aborted
//     all devices run
//     recorder: stopped
//     camera: stopped
//     player: stopped

#include <resmgt/deviceManager.h>
#include <resmgt/deviceProtocol.h>
#include <zvbase/zvbase.h>

#include <iostream>
#include <stdexcept>

using namespace Zv;

namespace {

/// A device that cannot start if it has no signal.
class Device : public DevMDStdDevice
{
public:
    Device(LiString const &name, bool hasSignal) : DevMDStdDevice(name), _hasSignal(hasSignal) {}

protected:
    void start() override
    {
        if (!_hasSignal)
            throw std::runtime_error("no signal");
    }

private:
    bool _hasSignal;
};

/// The texts of `DevSeqDeviceStatus::End`.
constexpr char const *ENDS[] = {"not ended", "stopped", "aborted", "failed, ", "no answer"};

/// Runs the devices, and returns when all of them have ended.
void run()
{
    ObjPtr<DevMgr> const manager = DevMgr::create();
    ObjPtr<DevMgrSeqSupervisor> const sequence =
        manager->createSeqSupervisor("( recorder ( camera player ) )");
    sequence->start();
    try {
        if (sequence->waitLocked(10)) // seconds
            std::cout << "all devices run\n";
    } catch (DevMgrEx::SeqDeviceFailed const &failure) {
        std::cout << failure.getReason() << '\n';
    }
    for (DevSeqDeviceStatus const &device : sequence->stop(10).devices)
        std::cout << device.name << ": " << ENDS[static_cast<int>(device.end)] << device.failure
                  << '\n';
    for (LiString const &name : manager->close(10).getLeftBehind())
        std::cerr << name << " does not close.\n";
}

} // namespace

int main()
{
    InPackageScope const packages;
    bool isPluggedIn = false; // the camera
    for (char const *name : {"recorder", "camera", "player"})
        DevRegistry::getInstance().add(
            makeRegistryEntry(name, "A device with a signal", [&](LiString const &device) {
                return makeShd<Device>(device, device != "camera" || isPluggedIn);
            }));
    run();
    isPluggedIn = true;
    run();
}
