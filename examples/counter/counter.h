// A complete device: it counts while it runs, and shows its count as a property.
#pragma once

#include <resmgt/deviceManager.h>
#include <resmgt/deviceProtocol.h>

/// Its own thread calls the operations from `open` to `abort` and those of its properties, so that nothing here needs a
/// lock. `getLatency` and `getMark` run on other threads and read nothing that changes.
class Counter : public Zv::DevMDStdAccessPrtcl,
                public Zv::DevMDStdSyncSeqPrtcl,
                public Zv::DevMDStdPropertyPrtcl
{
public:
    Counter(Zv::LiString const &name, Zv::RCShdPtr<Zv::DevMDStdFifo> fifo)
        : DevMDStdAccessPrtcl(name, fifo, Zv::makeObj<Zv::DevMDStdLoopThreadProtocol>(fifo),
                              Zv::makeAccessANOFactory(*this)),
          DevMDStdSyncSeqPrtcl(name, fifo, Zv::makeSyncSeqANOFactory(*this)),
          DevMDStdPropertyPrtcl(name)
    {
        using namespace Zv;
        ObjPtr<DevMDStdPropertySetBuilder> builder = getPropertySetBuilder();
        builder->addProperty(makeShd<DevMDStdProperty<int>>(
            "count", "Counts by one at each reading; can be set",
            DevMDPropertyAny::READABLE | DevMDPropertyAny::WRITABLE,
            makePropertyANOFactory<int>(
                [this](int count) { _count = count; },
                [this](int &count) { count = _isRunning ? ++_count : _count; }),
            fifo));
    }

    void open() {}
    void close() {}
    void start(Zv::ObjPtr<Zv::DevANO> recover, Zv::ObjPtr<Zv::DevANO> abort)
    {
        _recover = recover; // to be executed by a device that has lost its lock
        _abort = abort;     // to be executed by a device that cannot go on
    }
    void sync(Zv::DtTime const &) { _isRunning = true; }
    void sync(Zv::DtTimeMark const &) { _isRunning = true; }
    void recover() {}
    void stop() { _isRunning = false; }
    void abort() { _isRunning = false; }

    Zv::DtTime getLatency() override { return Zv::DtTime(); }
    Zv::DtTimeMark getMark() override { return Zv::DtTimeMark(); }

private:
    bool _isRunning = false;
    int _count = 0;
    Zv::ObjPtr<Zv::DevANO> _recover;
    Zv::ObjPtr<Zv::DevANO> _abort;
};

/// How the manager comes by one.
class CounterEntry : public Zv::DevRegistryEntry
{
public:
    explicit CounterEntry(Zv::LiString const &name) : DevRegistryEntry(name, "counts") {}

    Zv::RCShdPtr<Zv::DevMDPrtcl> createPrtcl() override
    {
        return Zv::makeShd<Counter>(getName(), Zv::makeShd<Zv::DevMDStdFifo>());
    }
};
