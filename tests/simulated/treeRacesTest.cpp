// Trees that are built while other threads read their states and change their observers.
#include "simulated/sequences.h"

#include "resmgt/deviceManager.h"
#include "resmgt/deviceProtocol.h"
#include "resmgt/locks.h"
#include "zvbase/inPackage.h"

#include <functional>
#include <sstream>
#include <string>

using namespace Zv;
using namespace Zv::Simulated;

namespace {

constexpr Settings WITH_TABLE = withSequences(100);

/// Returns the text that `read` returns. Empty if there is no tree yet, or no device of the name.
template <class Read>
LiString tryTo(Read read)
{
    try {
        return read();
    } catch (RCEx::ExNullPtr const &) {
    } catch (DevMgrEx::NameNotFound const &) {
    }
    return LiString();
}

std::string write(DevSeqTree const &tree)
{
    std::ostringstream stream;
    try {
        stream << tree;
    } catch (RCEx::ExNullPtr const &) {
    }
    return stream.str();
}

/// An observer that is not called after it has been detached.
class Onlooker final : public DevSeqObserver
{
public:
    void stateChanged(LiString const &, LiString const &) override
    {
        HOLDS(!isDetached);
        step("being told of a state");
        HOLDS(!isDetached);
    }
    bool isDetached = false;
};

/// Attaches observers, one after the other, and detaches them again.
template <class Observed>
void observe(Observed &observed, int nbObservers)
{
    for (int i = 0; i < nbObservers; ++i) {
        auto const onlooker = makeShd<Onlooker>();
        observed.setObserver(onlooker);
        step("observes");
        observed.setObserver(nullptr);
        onlooker->isDetached = true;
    }
}

/// A device that answers each step within the call.
class Prompt final : public DevMDSyncSeqPrtcl
{
public:
    void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO>, ObjPtr<DevANO>) override
    {
        aco->performExecute();
    }
    void performSync(ObjPtr<DevACO> aco, DtTimeMark const &) override { aco->performExecute(); }
    void performSync(ObjPtr<DevACO> aco, DtTime const &) override { aco->performExecute(); }
    void performRecover(ObjPtr<DevACO> aco) override { aco->performExecute(); }
    void performStop(ObjPtr<DevACO> aco) override { aco->performExecute(); }
    void performAbort(ObjPtr<DevACO> aco) override { aco->performExecute(); }
    DtTime getLatency() override { return DtTime(); }
    DtTimeMark getMark() override { return DtTimeMark(); }
};

} // namespace

/// A reader that holds the tree's lock sees no change. Without the lock, it sees nodes come, and
/// none go.
SIMULATED(TreeIsBuiltWhileItsStatesAreRead, WITH_TABLE)
{
    InPackageScope const packages;
    RCShdPtr<DevSeqTree> const tree(new DevSeqTree);
    auto const read = [&tree](char const *name) {
        return tryTo([&] { return tree->getState(name); });
    };
    {
        Worker reader("reader", [&] {
            bool wasThere = false;
            for (int i = 0; i < 3; ++i) {
                bool const isThere = read("child") == "init";
                HOLDS(isThere || !wasThere);
                HOLDS(!isThere || (read("root") == "init" && !tree->getFailure("child")));
                wasThere = isThere;
            }
        });
        Worker holder("holder", [&] {
            for (int i = 0; i < 2; ++i) {
                LkGuard const guard(tree->getLock());
                std::string const written = write(*tree);
                LiString const state = read("child");
                step("holds the lock");
                HOLDS(write(*tree) == written);
                HOLDS(read("child") == state);
            }
        });
        Worker observer("observer", [&] { observe(*tree, 3); });
        auto const root = DevSeqTreeNode::createNoop("root");
        tree->setRoot(root);
        tree->attach(root, DevSeqTreeNode::createNoop("child"));
        tree->setRoot(DevSeqTreeNode::createNoop("top"));
    }
    HOLDS(read("child") == "init" && read("top") == "init");
    HOLDS(write(*tree) == "( top ( root ( child ) ) )");
}

/// Changes that are made under the tree's lock are seen as one.
SIMULATED(SubtreeIsSeenWholeOrNotAtAll, WITH_TABLE)
{
    InPackageScope const packages;
    RCShdPtr<DevSeqTree> const tree(new DevSeqTree);
    auto const root = DevSeqTreeNode::createNoop("root");
    tree->setRoot(root);
    LkUnnamedSema isHalfBuilt("isHalfBuilt", 0);
    auto const check = [&](std::function<bool(char const *)> const &isThere) {
        isHalfBuilt.wait();
        for (int i = 0; i < 2; ++i)
            HOLDS(!isThere("first") || isThere("last"));
    };
    {
        Worker states("states", [&] {
            check([&tree](char const *name) {
                return tryTo([&] { return tree->getState(name); }) == "init";
            });
        });
        Worker failures("failures", [&] {
            check([&tree](char const *name) {
                return tryTo([&] {
                           tree->getFailure(name);
                           return LiString("there");
                       }) == "there";
            });
        });
        Worker writer("writer", [&] {
            check(
                [&tree](char const *name) { return write(*tree).find(name) != std::string::npos; });
        });
        LkGuard const guard(tree->getLock());
        tree->attach(root, DevSeqTreeNode::createNoop("first"));
        for (int i = 0; i < 3; ++i)
            isHalfBuilt.post();
        step("half built");
        tree->attach(root, DevSeqTreeNode::createNoop("last"));
    }
}

/// The states of a sequence are read while it is configured, until after its end.
SIMULATED(SequenceIsConfiguredWhileItsStatesAreRead, WITH_TABLE)
{
    InPackageScope const packages;
    LkUnnamedSema isAlmostBuilt("isAlmostBuilt", 0);
    for (char const *name : {"a", "b", "c"})
        DevRegistry::getInstance().add(
            makeRegistryEntry(name, "prompt", [&isAlmostBuilt](LiString const &created) {
                for (int i = 0; i < 2 && created == "c"; ++i)
                    isAlmostBuilt.post();
                return RCShdPtr<DevMDPrtcl>(new Prompt);
            }));
    ObjPtr<DevMgr> const manager = DevMgr::create();
    ObjPtr<DevMgrSyncSeqAcc> const access = manager->createSyncSeqAcc();
    {
        Worker reader("reader", [&] {
            isAlmostBuilt.wait();
            for (int i = 0; i < 40; ++i) {
                LiString const first = tryTo([&] { return access->getState("a"); });
                LiString const last = tryTo([&] { return access->getState("c"); });
                HOLDS(first.isEmpty() || !last.isEmpty());
                if (!last.isEmpty())
                    HOLDS(!access->getFailure("b"));
            }
        });
        Worker observer("observer", [&] {
            isAlmostBuilt.wait();
            observe(*access, 15);
        });
        access->configure("( a ( b c ) )");
        HOLDS(access->getState("c") == "init");
        access->start();
        access->stop();
        access->wait();
    }
    for (char const *name : {"a", "b", "c"})
        HOLDS(access->getState(name) == "final");
}
