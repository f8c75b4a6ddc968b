// Closing of a manager within a limit, in virtual time, with devices that are slow or hang in any
// phase, and threads that use the manager meanwhile.
#include "simulated/scenario.h"

#include "resmgt/deviceManager.h"
#include "resmgt/deviceProtocol.h"
#include "resmgt/locks.h"
#include "zvbase/inPackage.h"

#include "platform/services.h"

#include <cmath>
#include <functional>
#include <string>
#include <utility>
#include <vector>

using namespace Zv;
using namespace Zv::Simulated;

namespace {

using End = DevMgrCloseReport::End;

/// Time advances only when all threads wait.
constexpr Settings STRICT = {
    .schedules = 100, .bound = 100'000, .hasty = false, .leftOver = {64, 0}};
constexpr Settings ONE_HANGS = {
    .schedules = 100, .bound = 100'000, .hasty = false, .leftOver = {64, 1}};
/// Any thread may be late, as on a loaded machine, and may then be left behind.
constexpr Settings HASTY = {.schedules = 100, .bound = 100'000, .leftOver = {64, 4}};

/// What the program knows of a device, also after the device has been destroyed.
struct Watched
{
    std::string name;
    std::function<void()> open = [] {};
    std::function<void()> close = [] {};
    int nbOpened = 0;
    int nbClosings = 0;
    int nbClosed = 0;
    int nbDestroyed = 0;
};

/// Names of the devices, as their closings begin. A thread that hangs in one is not waited for.
class Closings
{
public:
    void add(std::string const &name)
    {
        LkGuard const guard(_lock);
        _names.push_back(name);
    }
    bool operator==(std::vector<std::string> const &names) const
    {
        LkGuard const guard(_lock);
        return _names == names;
    }

private:
    LkMutex _lock{"closings"};
    std::vector<std::string> _names;
};

class Device : public DevMDAccessPrtcl
{
public:
    Device(Watched &watched, Closings &closings) : _watched(watched), _closings(closings) {}
    ~Device() override { ++_watched.nbDestroyed; }

    void performOpen() override
    {
        _watched.open();
        HOLDS(++_watched.nbOpened == 1);
    }
    void performClose() override
    {
        HOLDS(_watched.nbOpened == 1 && ++_watched.nbClosings == 1);
        _closings.add(_watched.name);
        _watched.close();
        ++_watched.nbClosed;
    }

private:
    Watched &_watched;
    Closings &_closings;
};

/// A manager of the devices "a", "b" and "c".
struct Scene
{
    Scene()
    {
        for (char const *name : {"a", "b", "c"}) {
            auto &device = watched.emplace_back(new Watched{.name = name});
            DevRegistry::getInstance().add(
                makeRegistryEntry(name, "", [this, device](LiString const &) {
                    return RCShdPtr<DevMDPrtcl>(new Device(*device, closings));
                }));
        }
        manager = DevMgr::create();
    }
    Watched &operator[](int number) { return *watched[static_cast<std::size_t>(number)]; }
    void open()
    {
        for (Watched const *device : watched)
            manager->getPrtcl(device->name.c_str());
    }

    Closings closings;
    std::vector<Watched *> watched; // never deleted, because threads that hang may use them
    ObjPtr<DevMgr> manager;
};

double seconds()
{
    return static_cast<double>(getTime()) * 1e-9;
}

bool isAbout(double value, double expected)
{
    return std::fabs(value - expected) < 0.01;
}

/// Never returns.
void hang()
{
    ::Sleep(INFINITE);
}

} // namespace

SIMULATED(DevicesThatHangOrAreSlowShareTheTime, ONE_HANGS)
{
    InPackageScope const packages;
    Scene scene;
    scene[0].close = [] { ::Sleep(500); };
    scene[1].close = hang;
    scene[2].close = [] { ::Sleep(3000); };
    scene.open();
    double const start = seconds();
    // The share of each device is 2 seconds, but "c" gets the 3 seconds that it needs.
    DevMgrCloseReport const report = scene.manager->close(6);
    HOLDS(isAbout(seconds() - start, 6));
    HOLDS((scene.closings == std::vector<std::string>{"c", "b", "a"}));
    HOLDS(report.devices.size() == 3 && !report.isThreadLeftBehind);
    HOLDS(report.devices[0].end == End::CLOSED && isAbout(report.devices[0].seconds, 3));
    HOLDS(report.devices[1].end == End::NOT_CLOSED && !report.devices[1].failure);
    HOLDS(report.devices[2].end == End::CLOSED && isAbout(report.devices[2].seconds, 0.5));
    HOLDS((report.getLeftBehind() == Vector<LiString>{"b"}));
    scene.manager = nullptr;
    HOLDS(isAbout(seconds() - start, 6));
    HOLDS(scene[0].nbDestroyed == 1 && scene[1].nbDestroyed == 0 && scene[2].nbDestroyed == 1);
}

SIMULATED(NoTimeIsLostOnDevicesThatClose, STRICT)
{
    InPackageScope const packages;
    Scene scene;
    scene[1].close = [] { ::Sleep(2000); };
    scene.open();
    double const start = seconds();
    HOLDS(scene.manager->close(1000).getLeftBehind().empty());
    HOLDS(isAbout(seconds() - start, 2));
    scene.manager = nullptr;
    for (int i = 0; i < 3; ++i)
        HOLDS(scene[i].nbClosed == 1 && scene[i].nbDestroyed == 1);
}

SIMULATED(ADeviceThatHangsInItsOpeningIsLeftBehind, STRICT)
{
    InPackageScope const packages;
    Scene scene;
    LkUnnamedSema mayReturn("mayReturn", 0);
    scene[1].open = [&mayReturn] { mayReturn.wait(); };
    bool hasFailed = false;
    Worker opener("opener", [&] {
        try {
            scene.open();
        } catch (DevMgrEx::ManagerClosed const &) {
            hasFailed = true;
        }
    });
    ::Sleep(1); // until it hangs
    double const start = seconds();
    DevMgrCloseReport const report = scene.manager->close(2);
    HOLDS(isAbout(seconds() - start, 2));
    HOLDS(report.devices.size() == 2);
    HOLDS(report.devices[0].name == "b" && report.devices[0].end == End::NOT_OPENED);
    HOLDS(report.devices[1].name == "a" && report.devices[1].end == End::CLOSED);
    scene.manager = nullptr;
    HOLDS(isAbout(seconds() - start, 2));
    mayReturn.post();
    opener.join();
    HOLDS(hasFailed && scene[1].nbOpened == 1 && scene[1].nbClosings == 0);
    HOLDS(scene[1].nbDestroyed == 0 && scene[2].nbOpened == 0);
}

/// Devices that are opened in time are closed, and no device is opened afterwards.
SIMULATED(ManagerIsClosedWhileTwoThreadsOpenDevices, STRICT)
{
    InPackageScope const packages;
    Scene scene;
    auto const open = [&scene] {
        try {
            scene.open();
        } catch (DevMgrEx::ManagerClosed const &) {
        }
    };
    Worker first("first", open);
    Worker second("second", open);
    DevMgrCloseReport const report = scene.manager->close(1000);
    int nbClosed = 0;
    for (int i = 0; i < 3; ++i) {
        HOLDS(scene[i].nbOpened == scene[i].nbClosed);
        nbClosed += scene[i].nbClosed;
    }
    HOLDS(static_cast<int>(report.devices.size()) == nbClosed && report.getLeftBehind().empty());
    first.join();
    second.join();
    for (int i = 0; i < 3; ++i)
        HOLDS(scene[i].nbOpened == scene[i].nbClosed);
}

SIMULATED(ManagerIsClosedByTwoInNoTime, HASTY)
{
    InPackageScope const packages;
    auto &scene = *new Scene; // never deleted, because threads that are left behind may use it
    scene.open();
    LkCounter<long> nbClosings;
    auto const close = [&] {
        try {
            DevMgrCloseReport const report = scene.manager->close(0.1);
            ++nbClosings;
            HOLDS(report.devices.size() == 3);
            for (std::size_t i = 0; i < 3; ++i)
                HOLDS(report.devices[i].end == End::NOT_CLOSED ||
                      scene.watched[2 - i]->nbClosed == 1);
        } catch (DevMgrEx::ManagerClosed const &) {
        }
    };
    Worker other("other", close);
    close();
    other.join();
    HOLDS(nbClosings.getValue() == 1);
    scene.manager = nullptr;
}

/// The manager's thread can continue at the moment when its share of the time is over.
SIMULATED(ManagerIsClosedWhileItsThreadComesFree, HASTY)
{
    InPackageScope const packages;
    struct Executed
    {
        LkUnnamedSema mayGoOn{"mayGoOn", 0};
        int nb = 0;
    };
    auto &executed = *new Executed; // never deleted, because the thread may use it
    RCShdPtr<DevMgrMediator> mediator(new DevMgrMediator);
    auto const produce = [fifo = mediator->getFifo()](std::function<void()> function) {
        DevANOQueueEntry entry(makeANO(std::move(function)));
        fifo->produce(entry);
    };
    produce([&executed] {
        executed.mayGoOn.wait();
        ++executed.nb;
    });
    produce([&executed] { ++executed.nb; });
    Worker liberator("liberator", [&executed] {
        ::Sleep(100);
        executed.mayGoOn.post();
    });
    DevMgrCloseReport const report = mediator->close(0.2);
    HOLDS(report.isThreadLeftBehind == mediator->isThreadLeftBehind());
    HOLDS(report.isThreadLeftBehind || executed.nb == 2);
    mediator = nullptr;
}

SIMULATED(ClosingIsRefused, {.schedules = 20,
                             .bound = 100'000,
                             .hasty = false,
                             .leftOver = {64, 0},
                             .refusals = ALL_RESOURCES})
{
    InPackageScope const packages;
    Scene scene;
    scene.open();
    auto const close = [&scene] {
        DevMgrCloseReport const report = scene.manager->close(1);
        HOLDS(report.devices.size() == 3);
        for (std::size_t i = 0; i < 3; ++i) {
            bool const isClosed = report.devices[i].end == End::CLOSED;
            HOLDS(isClosed == !report.devices[i].failure);
            HOLDS(isClosed == (scene.watched[2 - i]->nbClosed == 1));
        }
    };
    try {
        MayBeRefused const refusals;
        close();
    } catch (ExBase const &) {
        close();
    } catch (std::exception const &) {
        close();
    }
    scene.manager = nullptr;
}
