// A complete device: it counts while it runs, and shows its count as a property.
#pragma once

#include <resmgt/deviceManager.h>
#include <resmgt/deviceProtocol.h>

/// What it overrides and the functions of its property run on its own thread, so that nothing here needs a lock.
class Counter : public Zv::DevMDStdDevice
{
public:
    explicit Counter(Zv::LiString const &name) : DevMDStdDevice(name)
    {
        Zv::ObjPtr<Zv::DevMDStdPropertySetBuilder> builder = getPropertySetBuilder();
        builder->addProperty(Zv::makeProperty<int>(
            "count", "Counts by one at each reading; can be set", getFifo(),
            [this](int &count) { count = _isRunning ? ++_count : _count; },
            [this](int count) { _count = count; }));
    }

protected:
    void sync() override { _isRunning = true; }
    void stop() override { _isRunning = false; }
    void abort() override { _isRunning = false; }

private:
    bool _isRunning = false;
    int _count = 0;
};

/// How a manager comes by one.
inline Zv::ObjPtrRet<Zv::DevRegistryEntry> makeCounterEntry(Zv::LiString const &name)
{
    return Zv::makeRegistryEntry(
        name, "counts", [](Zv::LiString const &device) { return Zv::makeShd<Counter>(device); });
}
