// Threads that wait for the end of a sequence, while it ends and while it is destroyed.
#include "simulated/sequences.h"

#include "resmgt/deviceManager.h"
#include "zvbase/inPackage.h"

#include "platform/services.h"

using namespace Zv;
using namespace Zv::Simulated;

namespace {

/// Returns a tree of two nodes without devices. The child has ended, and the root is in the state
/// "stop".
RCShdPtr<DevSeqTree> makeStoppingTree()
{
    RCShdPtr<DevSeqTree> const tree(new DevSeqTree);
    auto const root = DevSeqTreeNode::createNoop("root");
    tree->setRoot(root);
    tree->attach(root, DevSeqTreeNode::createNoop("child"));
    tree->processEvent(DevSeqEv::START);
    tree->processEvent("child", DevSeqEv::READY);
    tree->processEvent("root", DevSeqEv::READY);
    tree->processEvent("root", DevSeqEv::LOCK);
    tree->processEvent("child", DevSeqEv::LOCK);
    tree->processEvent(DevSeqEv::STOP);
    tree->processEvent("child", DevSeqEv::STOPPED);
    HOLDS(tree->getState("root") == "stop");
    return tree;
}

} // namespace

SIMULATED(TwoWaitWhileTheSequenceEnds, withSequences(200))
{
    InPackageScope const packages;
    auto const tree = makeStoppingTree();
    auto const wait = [&tree] {
        tree->wait();
        HOLDS(tree->getState("root") == "final");
    };
    Worker first("first", wait);
    Worker second("second", wait);
    tree->processEvent(DevSeqEv::STOPPED);
    wait();
}

SIMULATED(WaitersAreReleasedWhileTheSequenceEnds, withSequences(200))
{
    InPackageScope const packages;
    auto const tree = makeStoppingTree();
    auto const wait = [&tree] {
        try {
            tree->wait();
            HOLDS(tree->getState("root") == "final");
        } catch (DevMgrEx::SequenceAbandoned const &) {
        }
    };
    Worker first("first", wait);
    Worker second("second", wait);
    Worker reporter("reporter", [&tree] { tree->processEvent(DevSeqEv::STOPPED); });
    tree->releaseWaiters();
    reporter.join();
    tree->wait();
}

SIMULATED(SequenceIsDestroyedWhileTwoWaitForItsEnd, withSequences(200, 100'000, false))
{
    InPackageScope const packages;
    auto tree = makeStoppingTree();
    ObjPtr<DevClonableANO> const report(SeqANOFactory(tree).create("root", DevSeqEv::STOPPED));
    bool hasReported = false;
    auto const wait = [&] {
        try {
            tree->wait();
            HOLDS(hasReported);
        } catch (DevMgrEx::SequenceAbandoned const &) {
        }
    };
    Worker first("first", wait);
    Worker second("second", wait);
    ::Sleep(1); // until both wait
    Worker reporter("reporter", [&] {
        hasReported = true;
        report->performExecute();
    });
    tree = nullptr;
}
