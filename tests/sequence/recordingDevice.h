// Recording devices: they log their calls, and finish a step when a test wants it.
#pragma once

#include "resmgt/deviceManager/devMgrFifo.h"
#include "resmgt/deviceManager/sequence/devSeqPrtclUtil.h"
#include "resmgt/deviceManager/sequence/devSeqTree.h"
#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "testing/journal.h"

#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace ZvTest {

inline std::string textOf(Zv::DtTime const &time)
{
    std::ostringstream stream;
    stream << time.getSeconds();
    return stream.str();
}

/// Returns a mark that tests can tell from others by its reference.
inline Zv::DtTimeMark markAt(double reference)
{
    return Zv::DtTimeMark(Zv::DtTime(), reference);
}

class RecordingProtocol : public Zv::DevMDSyncSeqPrtcl
{
public:
    RecordingProtocol(std::string name, Lines &log) : _name(std::move(name)), _log(log) {}

    void performStart(Zv::ObjPtr<Zv::DevACO> aco, Zv::ObjPtr<Zv::DevANO> recovery,
                      Zv::ObjPtr<Zv::DevANO> abortion) override
    {
        called("start", aco);
        _recover = recovery;
        _abort = abortion;
    }
    void performSync(Zv::ObjPtr<Zv::DevACO> aco, Zv::DtTimeMark const &time) override
    {
        std::ostringstream text;
        text << "sync mark " << time.getReference();
        called(text.str(), aco);
    }
    void performSync(Zv::ObjPtr<Zv::DevACO> aco, Zv::DtTime const &time) override
    {
        called("sync time " + textOf(time), aco);
    }
    void performRecover(Zv::ObjPtr<Zv::DevACO> aco) override { called("recover", aco); }
    void performStop(Zv::ObjPtr<Zv::DevACO> aco) override { called("stop", aco); }
    void performAbort(Zv::ObjPtr<Zv::DevACO> aco) override { called("abort", aco); }
    Zv::DtTime getLatency() override { return latency; }
    Zv::DtTimeMark getMark() override
    {
        if (onMark)
            onMark();
        return mark;
    }

    /// Runs the completion of the device's last step.
    void complete()
    {
        Zv::ObjPtr<Zv::DevACO> aco = _aco;
        aco->performExecute();
    }
    bool hasStep() const { return !_aco.isNull(); }
    /// Passes the notification to the caller, which may execute it.
    Zv::ObjPtr<Zv::DevANO> takeRecover() { return _recover; }
    Zv::ObjPtr<Zv::DevANO> takeAbort() { return _abort; }

    Zv::DtTime latency;
    Zv::DtTimeMark mark;
    std::function<void(std::string const &)> onCall;
    std::function<void()> onMark;
    std::function<void()> onDestruction;

protected:
    ~RecordingProtocol() override
    {
        _log.push_back(_name + " gone");
        if (onDestruction)
            onDestruction();
    }

private:
    void called(std::string const &what, Zv::ObjPtr<Zv::DevACO> &aco)
    {
        _log.push_back(_name.empty() ? what : _name + " " + what);
        if (onCall)
            onCall(what);
        _aco = aco;
    }

    std::string _name;
    Lines &_log;
    Zv::ObjPtr<Zv::DevACO> _aco;
    Zv::ObjPtr<Zv::DevANO> _recover;
    Zv::ObjPtr<Zv::DevANO> _abort;
};

/// A tree of recording devices, and the queue of their reports.
class World
{
public:
    World() : tree(new Zv::DevSeqTree), fifo(new Zv::DevMgrFifo(0)) {}
    ~World() { fifo->close(); }

    Zv::RCShdPtr<Zv::DevSeqTreeNode> createNode(std::string const &name)
    {
        using namespace Zv;
        RCShdPtr<RecordingProtocol> const device(new RecordingProtocol(name, log));
        devices[name] = device.get();
        SeqANOFactory const notifications(tree);
        LiString const node(name.c_str());
        RCShdPtr<DevSeqPrtclUtil> const util(
            new DevSeqPrtclUtil(device, fifo, notifications.create(node, DevSeqEv::READY),
                                notifications.create(node, DevSeqEv::LOCK),
                                notifications.create(node, DevSeqEv::ABORTED),
                                notifications.create(node, DevSeqEv::STOPPED),
                                notifications.create(node, DevSeqEv::RECOVER),
                                notifications.create(node, DevSeqEv::ABORT)));
        return nodes[name] = DevSeqTreeNode::create(node, util);
    }
    void root(std::string const &name) { tree->setRoot(createNode(name)); }
    void child(std::string const &parent, std::string const &name)
    {
        tree->attach(nodes.at(parent), createNode(name));
    }

    /// Finishes the device's step and delivers its report to the tree.
    void complete(std::string const &name)
    {
        devices.at(name)->complete();
        deliverReports();
    }
    void recover(std::string const &name)
    {
        Zv::ObjPtr<Zv::DevANO> const ano = devices.at(name)->takeRecover();
        ano->performExecute();
        deliverReports();
    }
    void abort(std::string const &name)
    {
        Zv::ObjPtr<Zv::DevANO> const ano = devices.at(name)->takeAbort();
        ano->performExecute();
        deliverReports();
    }
    void deliverReports()
    {
        for (Zv::DevANOQueueEntry entry; fifo->tryConsume(entry);) {
            Zv::ObjPtr<Zv::DevANO> const ano = entry.release();
            ano->performExecute();
            ano->notify();
        }
    }

    std::string state(std::string const &name) { return tree->getState(name.c_str()).getChars(); }
    /// Returns the lines of the log since the last call.
    Lines takeLog() { return std::exchange(log, {}); }

    Lines log;
    Zv::RCShdPtr<Zv::DevSeqTree> tree;
    Zv::RCShdPtr<Zv::DevMgrFifo> fifo;
    std::map<std::string, RecordingProtocol *> devices;
    std::map<std::string, Zv::RCShdPtr<Zv::DevSeqTreeNode>> nodes;
};

} // namespace ZvTest
