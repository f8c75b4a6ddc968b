// Device that fills the queue of its manager.
#pragma once

#include "resmgt/deviceProtocol.h"
#include "resmgt/locks/lkSema.h"
#include "testing/asleep.h"
#include "testing/turnstile.h"

#include <atomic>
#include <functional>

namespace ZvTest {

using namespace Zv;

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

} // namespace ZvTest
