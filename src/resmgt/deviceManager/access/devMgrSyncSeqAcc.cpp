#include "resmgt/deviceManager/access/devMgrSyncSeqAcc.h"

#include "resmgt/deviceManager/access/configParsers.private.h"
#include "resmgt/deviceManager/devMgrDevice.private.h"
#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceManager/devMgrMediator.h"
#include "resmgt/deviceManager/sequence/devSeqPrtclUtil.h"
#include "resmgt/deviceManager/sequence/devSeqTree.h"
#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/locks/lkGuard.h"
#include "zvbase/containers.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"

namespace Zv {

namespace {

/// Each operation that calls devices has its own references to what it uses. So the manager may be
/// closed, and this object destroyed, while a thread hangs in a device.
class DevMgrSyncSeqAccImp : public DevMgrSyncSeqAcc
{
public:
    explicit DevMgrSyncSeqAccImp(RCShdPtr<DevMgrMediator> const &mediator)
        : _tree(new DevSeqTree), _mediator(mediator)
    {
        _anoFactory = makeObj<SeqANOFactory>(_tree);
    }

    ~DevMgrSyncSeqAccImp() noexcept(false) override
    {
        _tree->releaseWaiters();
        // The manager's thread may hang in this tree, and hold the tree's lock.
        if (!_mediator.isNull() && _mediator->isThreadLeftBehind())
            DevMgrLeftBehind::keep(_tree);
        bool const isDestroyedByItsOwnCallback = _tree->isDelivering();
        if (isDestroyedByItsOwnCallback) {
            // The delivery goes on when the callback returns. It needs the tree and open devices.
            DevMgrLeftBehind::keep(_tree);
            DevMgrLeftBehind::keep(_mediator);
        }
        FirstFailure failure;
        releaseEach(_seqTreeNodeMap, failure);
        ZV_ASSERT_IN_DESTRUCTOR(!isDestroyedByItsOwnCallback);
        failure.rethrow();
    }

    Vector<Vector<LiString>> parseConfig(LiString const &config) override
    {
        return SeqConfigParser(config).getEdges();
    }

    void configure(LiString const &config) override
    {
        RCShdPtr<DevMgrMediator> const mediator = _mediator;
        LkGuard const guard(mediator->getLock());
        mediator->expectNotClosed();
        Vector<Vector<LiString>> const edges = SeqConfigParser(config).getEdges();
        for (auto const &edge : edges) {
            LiString const &name = edge[1];
            mediator->createPrtcl(name);
            auto const seqPrtcl = rcDynamicCast<DevMDSyncSeqPrtcl>(mediator->getPrtcl(name));
            if (seqPrtcl.isNull())
                ZV_THROW(DevMgrEx::BadMDPrtclImp);
            makeNode(name, seqPrtcl);
        }
        buildTree(edges);
    }

    void start() override { deliver(DevSeqEv::START); }
    void stop() override { deliver(DevSeqEv::STOP); }
    void wait() override
    {
        if (_mediator->isClosed())
            _tree->releaseWaiters(); // a closed manager delivers no reports
        _tree->wait();
    }
    LiString getState(LiString const &name) override
    {
        RCShdPtr<DevSeqTree> const tree = _tree;
        return tree->getState(name);
    }
    void setObserver(RCShdPtr<DevSeqObserver> observer) override { _tree->setObserver(observer); }
    std::optional<DevMgrFailure> getFailure(LiString const &name) override
    {
        return _tree->getFailure(name);
    }

private:
    void deliver(DevSeqEv::Event event)
    {
        _mediator->expectNotClosed();
        RCShdPtr<DevSeqTree> const tree = _tree; // needed until the call returns
        tree->processEvent(event);
    }

    void makeNode(LiString const &name, RCShdPtr<DevMDSyncSeqPrtcl> const &seqPrtcl)
    {
        auto const iter = _seqTreeNodeMap.find(name);
        ZV_ASSERT(iter == _seqTreeNodeMap.end());
        ZV_ASSERT(_mediator->isPrtclCreated( name ));
        ZV_ASSERT(!seqPrtcl.isNull());
        RCShdPtr<DevSeqPrtclUtil> const util(new DevSeqPrtclUtil(
            seqPrtcl, _mediator->getFifo(), prototype(name, DevSeqEv::READY),
            prototype(name, DevSeqEv::LOCK), prototype(name, DevSeqEv::ABORTED),
            prototype(name, DevSeqEv::STOPPED), prototype(name, DevSeqEv::RECOVER),
            prototype(name, DevSeqEv::ABORT)));
        util->setName(name);
        _seqTreeNodeMap.emplace(name, DevSeqTreeNode::create(name, util));
    }

    ObjPtr<DevClonableANO> prototype(LiString const &name, DevSeqEv::Event event)
    {
        return _anoFactory->create(name, event);
    }

    void buildTree(Vector<Vector<LiString>> const &edges)
    {
        LkGuard const guard(_tree->getLock()); // other threads see the whole tree or none
        LiString const null;
        auto iter = edges.begin();
        ZV_ASSERT((*iter)[0] == null);
        _tree->setRoot(findNode((*iter)[1]));
        while (++iter != edges.end())
            _tree->attach(findNode((*iter)[0]), findNode((*iter)[1]));
    }

    /// Returns null if no node has that name, for example for the parent of a second root.
    RCShdPtr<DevSeqTreeNode> findNode(LiString const &name) const
    {
        auto const entry = _seqTreeNodeMap.find(name);
        return entry == _seqTreeNodeMap.end() ? RCShdPtr<DevSeqTreeNode>() : entry->second;
    }

    HashMap<LiString, RCShdPtr<DevSeqTreeNode>> _seqTreeNodeMap;
    ObjPtr<SeqANOFactory> _anoFactory;
    RCShdPtr<DevSeqTree> _tree;
    RCShdPtr<DevMgrMediator> _mediator;
};

} // namespace

DevMgrSyncSeqAcc::~DevMgrSyncSeqAcc() noexcept(false) = default;

ObjPtrRet<DevMgrSyncSeqAcc> DevMgrSyncSeqAcc::create(RCShdPtr<DevMgrMediator> const &mediator)
{
    return makeObj<DevMgrSyncSeqAccImp>(mediator);
}

} // namespace Zv
