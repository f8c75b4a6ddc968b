// Priority graph and its solver (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkRecLock.h"
#include "zvbase/objPtr.h"
#include "zvbase/platform/shared.h"
#include "zvbase/sequenceContainers.h"
#include "zvbase/threadAnnotations.h"

#include <cstdint>
#include <iosfwd>

namespace Zv {

class Priority;
class PriorityClients;
class PriorityRelation;
class PrioritySolver;

/// A graph of priorities. Nodes (`Priority`) and relations (`PriorityRelation`) add themselves in
/// their constructors and remove themselves in their destructors.
///
///     PriorityMgr mgr("levels", 0, 6);
///     Priority worker("worker", mgr, Priority::NOT_SET);
///     worker.getPriority(); // 0
///
/// Each change solves the graph. Bounds go from the fixed nodes along the relations, each free node
/// gets the lowest value that its relations allow, the result is checked, and the nodes are told
/// their values.
///
/// While the graph is valid, adding or removing a node or a relation costs time proportional to
/// what changes by it. Other changes cost time proportional to the size of the graph. These are a
/// change that fails, the change after it, `setPriority` and `notify`, and each change while the
/// minimum is below 0 or a node was removed before its relations. There is one exception. If the
/// graph is invalid and a ring of relations in it, closed by an `==`, contains a `<`, a fixed node
/// outside the range, or a removed node, the cost may double with each further node.
///
/// **Threads**: thread-safe, except the destructor. A node that is being told its value may call
/// the manager too.
///
/// **Blocks**: while another thread changes the graph. The manager's lock is acquired before the
/// locks of nodes.
///
/// **Throws**: a change throws `PriorityEx::ExTransientInvalid` if no value is left for a node, and
/// `PriorityEx::ExRelationInvalid` if the values break a relation. No node is told a value of such
/// a solving. A node or a relation that caused it by joining is not added. A value that was set
/// stays.
///
/// **Owns**: nothing. The manager must outlive its nodes and relations.
class ZVRESMGT_EXPORT PriorityMgr
{
public:
    /// The result of a check.
    enum Error : int
    {
        ALL_VALID, ///< The graph is valid.
        TRANSIENT_INVALID,
        RELATION_INVALID
    };
    /// The reason to solve the graph again. All reasons have the same effect.
    enum NotifyType : int
    {
        VALUE_CHANGED,
        RELATION_TAKEN_BACK
    };

    /// Free nodes get values from `minimum` to `maximum`. Fixed nodes may be outside this range.
    PriorityMgr(LiString const &name, int minimum, int maximum);
    PriorityMgr(PriorityMgr const &) = delete;
    PriorityMgr &operator=(PriorityMgr const &) = delete;
    virtual ~PriorityMgr() noexcept(false);

    /// Adds a node and solves the graph. Called by the node. A node that was added already keeps
    /// its place. Fails an assertion if the node belongs to another manager.
    void add(Priority &);
    /// Removes a node and solves the graph. Called by the node. Its relations that still exist are
    /// no longer checked, but keep passing bounds to their other nodes. Fails an assertion if the
    /// node belongs to another manager.
    void remove(Priority &);
    /// Adds a relation and solves the graph. Called by the relation. A relation that was added
    /// already keeps its place. Fails an assertion if the relation belongs to another manager.
    void add(PriorityRelation &);
    /// Removes a relation and solves the graph. Called by the relation. Fails an assertion if the
    /// relation belongs to another manager.
    void remove(PriorityRelation &);

    /// Marks the graph as changed, and solves it.
    void notify(NotifyType);
    /// Solves the graph if it has changed.
    void update();
    /// Returns whether the current values are valid, without solving.
    [[nodiscard]] Error check() const;

    LiString const &getName() const { return _name; }
    LkRecLock const &getLock() const ZV_RETURN_CAPABILITY(_lock) { return _lock; }
    /// Sets a mark for the debugging of the application. The manager does not use it.
    void enableTracing(bool);
    bool isTracingEnabled() const;
    /// Returns the name of an error. Any other value, also `ALL_VALID`, aborts the program.
    static char const *errorToString(Error);
    /// Writes the whole graph: all nodes, then those that were fixed when they were added, then all
    /// relations.
    void dump(std::ostream &) const;
    /// Writes the graph in DOT, for Graphviz, with the name and value of each node. Fixed nodes are
    /// boxes. An arrow leads from the left-hand side of a relation to the right-hand side, upwards.
    /// Relations of nodes that are not in the graph are left out.
    void dumpDot(std::ostream &) const;

protected:
    // These are called under the lock, which is recursive. They acquire it once more.

    /// Solves the graph. In this class it has the results of `solveInFull`, at the costs named
    /// above.
    virtual void performUpdate();
    /// Called if a solving failed. Throws the failure. If an override returns, the nodes are told
    /// their values nevertheless.
    virtual void updateError(Error);

    /// Solves the graph by following every path through it. This defines the result of a solving.
    void solveInFull();

private:
    friend class Priority;
    friend class PriorityRelation;

    void updateNoLock() ZV_REQUIRES(_lock);
    void notifyNoLock(NotifyType) ZV_REQUIRES(_lock);
    Error checkNoLock() const ZV_REQUIRES(_lock);
    Priority const *checkTransientNoLock() const ZV_REQUIRES(_lock);
    PriorityRelation const *checkRelationsNoLock() const ZV_REQUIRES(_lock);
    void notifyClientsNoLock() ZV_REQUIRES(_lock);
    List<Priority *>::iterator findPriorityNoLock(List<Priority *> &, Priority const *)
        ZV_REQUIRES(_lock);
    List<PriorityRelation *>::iterator findRelationNoLock(PriorityRelation const *)
        ZV_REQUIRES(_lock);
    unsigned removeRelationsNoLock(Priority *) ZV_REQUIRES(_lock);
    void resetNoLock() ZV_REQUIRES(_lock);
    bool findBoundsNoLock() ZV_REQUIRES(_lock);
    void walkAllWaysNoLock() ZV_REQUIRES(_lock);
    void takeValuesNoLock() ZV_REQUIRES(_lock);
    List<Priority *> const &getPriosNoLock() const ZV_REQUIRES(_lock) { return _priorities; }

    struct RelationEntries;

    /// Removes `former` and adds `relation` in one solving. If that throws, `former` stays in
    /// force.
    void replace(PriorityRelation &former, PriorityRelation &relation);
    /// Removes all relations of a node. Returns true if there was none.
    bool takeOffRelationsOf(Priority &);

    bool takeOffNoLock(Priority &) ZV_REQUIRES(_lock);
    void takeOffNoLock(PriorityRelation &) ZV_REQUIRES(_lock);
    void attachNoLock(PriorityRelation &, RelationEntries &) ZV_REQUIRES(_lock);
    void detachNoLock(PriorityRelation &, RelationEntries &) ZV_REQUIRES(_lock);
    void setStrayNoLock(PriorityRelation &, bool isStray) ZV_REQUIRES(_lock);
    std::uint64_t nextSearch();
    void renamed();

    LiString _name;
    ZvPlatform::Shared<bool> _isTracing{false};
    LkRecLock _lock;
    bool _isDirty ZV_GUARDED_BY(_lock) = false;
    int _minimum;
    int _maximum;
    mutable PriorityRelation const *_invalidRelation ZV_GUARDED_BY(_lock) = nullptr;
    mutable Priority const *_invalidPriority ZV_GUARDED_BY(_lock) = nullptr;
    List<Priority *> _priorities ZV_GUARDED_BY(_lock);
    List<Priority *> _independant ZV_GUARDED_BY(_lock);
    List<PriorityRelation *> _relations ZV_GUARDED_BY(_lock);

    ObjPtr<PrioritySolver> _solver ZV_PT_GUARDED_BY(_lock);
    ObjPtr<PriorityClients> _clients ZV_PT_GUARDED_BY(_lock);
    bool _isVerified ZV_GUARDED_BY(_lock) = false; // the last solving is known to be valid
    ZvPlatform::Shared<bool> _isRenamed{false};    // a node of an `==` relation was renamed
    std::uint64_t _nbJoined ZV_GUARDED_BY(_lock) = 0;
    std::uint64_t _nbSearches ZV_GUARDED_BY(_lock) = 0;
    unsigned _nbStrays ZV_GUARDED_BY(_lock) = 0;
};

/// Writes the manager's dump.
ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &, PriorityMgr const &);

} // namespace Zv
