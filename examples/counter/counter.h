// Complete example device: counts the readings of its property.
#pragma once

#include <resmgt/deviceManager.h>
#include <resmgt/deviceProtocol.h>

/// Counts by one whenever its property is read. All of its code runs on its own thread, so nothing here needs a lock.
class Counter : public Zv::DevMDStdDevice
{
public:
    explicit Counter(Zv::LiString const &name) : DevMDStdDevice(name)
    {
        Zv::ObjPtr<Zv::DevMDStdPropertySetBuilder> properties = getPropertySetBuilder();
        properties->addProperty(Zv::makeProperty<int>("count", "Counts each reading", getFifo(),
                                                      [this](int &count) { count = ++_count; }));
    }

protected:
    void sync() override { _count = 0; }

private:
    int _count = 0;
};

/// Returns the entry by which managers find and create counters of this name.
inline Zv::ObjPtrRet<Zv::DevRegistryEntry> makeCounterEntry(Zv::LiString const &name)
{
    return Zv::makeRegistryEntry(
        name, "counts", [](Zv::LiString const &device) { return Zv::makeShd<Counter>(device); });
}
