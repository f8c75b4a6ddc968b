// Device that fills the queue of its manager, and a gate that holds a thread.
#pragma once

#include "resmgt/deviceProtocol.h"
#include "resmgt/locks/lkSema.h"
#include "threadExtensions/asleep.h"

#include <atomic>
#include <functional>

namespace Test {

using namespace Zv;

/// A place where one thread waits until another one opens it.
class Gate
{
public:
    void pass()
    {
        _arrived.post();
        _released.wait();
        _left.post();
    }
    void waitForArrival() { _arrived.wait(); }
    void open() { _released.post(); }
    void waitForLeaving() { _left.wait(); }

private:
    LkUnnamedSema _arrived{"arrived", 0, LkSemaTypes::Shared()};
    LkUnnamedSema _released{"released", 0, LkSemaTypes::Shared()};
    LkUnnamedSema _left{"left", 0, LkSemaTypes::Shared()};
};

/// Standard device whose property notifies its observer of each value that is set.
class Fader : public DevMDStdDevice
{
public:
    struct Level : DevMDStdProperty<int>
    {
        using DevMDStdProperty<int>::DevMDStdProperty;
        using DevMDStdProperty<int>::notify;
    };

    explicit Fader(LiString const &name) : DevMDStdDevice(name)
    {
        level = makeShd<Level>(
            "level", "", DevMDPropertyAny::WRITABLE,
            makePropertyANOFactory<int>([this](int) { level->notify(1); }, [](int &) {}),
            getFifo());
        ObjPtr<DevMDStdPropertySetBuilder>(getPropertySetBuilder())->addProperty(level);
    }

    void performStop(ObjPtr<DevACO> aco) override
    {
        if (beforeStop)
            beforeStop();
        DevMDStdDevice::performStop(aco);
    }
    void open() override { thread = threadNumber(); }

    RCShdPtr<Level> level;
    std::function<void()> beforeStop;
    std::atomic<long> thread{0};
};

} // namespace Test
