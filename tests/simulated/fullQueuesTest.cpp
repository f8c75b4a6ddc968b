// Sequences with full queues: steps and reports are queued nevertheless, requests and notifications
// wait.
#include "simulated/sequences.h"

#include "resmgt/deviceManager.h"
#include "resmgt/deviceProtocol.h"
#include "zvbase/inPackage.h"

using namespace Zv;
using namespace Zv::Simulated;

namespace {

void produce(DevANOFifo &fifo, ObjPtr<DevANO> ano)
{
    DevANOQueueEntry entry(ano);
    fifo.produce(entry);
}

/// A tree, and a thread that serves its queue, which has room for one entry.
class Manager
{
public:
    ~Manager()
    {
        produce(*_fifo, makeANO([this] { _isOver = true; }));
        _thread.join();
    }

    RCShdPtr<DevSeqTreeNode> addNode(LiString const &name,
                                     RCShdPtr<DevMDSyncSeqPrtcl> const &device)
    {
        auto const prototype = [&](DevSeqEv::Event event) {
            return ObjPtr<DevClonableANO>(_factory.create(name, event));
        };
        RCShdPtr<DevSeqPrtclUtil> const util(new DevSeqPrtclUtil(
            device, _fifo, prototype(DevSeqEv::READY), prototype(DevSeqEv::LOCK),
            prototype(DevSeqEv::ABORTED), prototype(DevSeqEv::STOPPED),
            prototype(DevSeqEv::RECOVER), prototype(DevSeqEv::ABORT)));
        auto node = DevSeqTreeNode::create(name, util);
        if (_root.isNull())
            tree->setRoot(_root = node);
        else
            tree->attach(_root, node);
        return node;
    }
    /// Queues a notification, as a device does when a property has changed.
    void notify()
    {
        produce(*_fifo, makeANO([] {}));
    }
    void run()
    {
        tree->processEvent(DevSeqEv::START);
        tree->processEvent(DevSeqEv::STOP);
        tree->wait();
        HOLDS(tree->getState("root") == "final");
    }

    RCShdPtr<DevSeqTree> const tree{new DevSeqTree};

private:
    RCShdPtr<DevMgrFifo> const _fifo{new DevMgrFifo(1)};
    SeqANOFactory _factory{tree};
    RCShdPtr<DevSeqTreeNode> _root;
    bool _isOver = false;
    Worker _thread{"manager", [this] {
                       while (!_isOver) {
                           ObjPtr<DevANO> const ano(_fifo->consume().release());
                           ano->performExecute();
                       }
                   }};
};

/// A device whose queue has room for one request.
class Narrow : public DevMDStdDevice
{
public:
    explicit Narrow(LiString const &name) : DevMDStdDevice(name, makeShd<DevMDStdFifo>(1)) {}
    using DevMDStdDevice::getFifo;
};

/// Finishes each step inside the call.
class Prompt : public DevMDSyncSeqPrtcl
{
public:
    void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO>, ObjPtr<DevANO>) override { finish(aco); }
    void performSync(ObjPtr<DevACO> aco, DtTimeMark const &) override { finish(aco); }
    void performSync(ObjPtr<DevACO> aco, DtTime const &) override { finish(aco); }
    void performRecover(ObjPtr<DevACO> aco) override { finish(aco); }
    void performStop(ObjPtr<DevACO> aco) override { finish(aco); }
    void performAbort(ObjPtr<DevACO> aco) override { finish(aco); }
    DtTime getLatency() override { return DtTime(); }
    DtTimeMark getMark() override { return DtTimeMark(); }

private:
    void finish(ObjPtr<DevACO> const &aco) { aco->performExecute(); }
};

} // namespace

SIMULATED(StepsAndReportsPassFullQueues, withSequences(100))
{
    InPackageScope const packages;
    auto const root = makeShd<Narrow>("root");
    auto const child = makeShd<Narrow>("child");
    {
        Manager manager;
        manager.addNode("root", root);
        manager.addNode("child", child);
        root->performOpen();
        child->performOpen();
        {
            Worker client("client", [&] {
                for (int i = 0; i < 3; ++i)
                    for (auto const &device : {root, child})
                        produce(*device->getFifo(), makeANO([&manager] { manager.notify(); }));
            });
            manager.run();
        }
        child->performClose();
        root->performClose();
    }
}

SIMULATED(ReportsFromInsideTheCallsPassAFullQueue, withSequences(100))
{
    InPackageScope const packages;
    Manager manager;
    for (char const *name : {"root", "a", "b", "c"})
        manager.addNode(name, makeShd<Prompt>());
    Worker client("client", [&manager] {
        for (int i = 0; i < 3; ++i)
            manager.notify();
    });
    manager.run();
}
