// The priority graph and its solver.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkRecLock.h"
#include "zvbase/containers.h"
#include "zvbase/objPtr.h"
#include "zvbase/threadAnnotations.h"

#include <cstdint>
#include <iosfwd>

namespace Zv {

class Priority;
class PriorityClients;
class PriorityRelation;
class PrioritySolver;

/// A graph of priorities. Nodes (`Priority`) and relations (`PriorityRelation`) add themselves in their constructors
/// and remove themselves in their destructors; the manager owns none of them and outlives them all.
///
/// Each change solves the graph: bounds go from the fixed nodes along the relations, each free node gets the lowest
/// value that its relations allow, the result is checked, and every node is told its value.
///
/// While the graph is valid, the cost of adding or removing a node or a relation goes with what changes by it, not with
/// the size of the graph. Each other change costs time proportional to the size of the graph: one that fails, the next
/// one after it, `setPriority` and `notify`, and all changes while the minimum is below 0 or a node has left before its
/// relations. There is one exception. If the graph is invalid and a ring of relations in it, closed by an `==`, has a
/// `<` in it, a fixed node outside the range, or a node that has left, the cost can double with each further node: the
/// reported bounds then depend on every way through the ring.
///
/// Whatever changes the graph throws `PriorityEx::ExTransientInvalid` when no value is left for a node, and
/// `PriorityEx::ExRelationInvalid` when the values break a relation. Nobody is told values of such a solving. A node
/// or relation that caused it by joining is not added; a value that was set stays.
///
/// All operations may be called by any thread, also by a node that is being told its value. They block while another
/// thread changes the graph. The manager's lock comes before the locks of nodes.
class ZVRESMGT_EXPORT PriorityMgr
{
public:
    enum Error : int
    {
        ALL_VALID,
        TRANSIENT_INVALID,
        RELATION_INVALID
    };
    /// Why the graph has to be solved again. Makes no difference.
    enum NotifyType : int
    {
        VALUE_CHANGED,
        RELATION_TAKEN_BACK
    };

    /// Free nodes are solved into the range from `minimum` to `maximum`; fixed nodes may lie outside.
    PriorityMgr(LiString const &name, int minimum, int maximum);
    PriorityMgr(PriorityMgr const &) = delete;
    PriorityMgr &operator=(PriorityMgr const &) = delete;
    virtual ~PriorityMgr() noexcept(false);

    /// Called by nodes and relations. All four assert that the node or relation is one of this manager's. One that is
    /// added already keeps its place.
    void add(Priority &);
    /// Relations of the node that still exist are no longer checked, but keep passing bounds to their other nodes.
    void remove(Priority &);
    void add(PriorityRelation &);
    void remove(PriorityRelation &);

    /// Marks the graph as changed, and solves it.
    void notify(NotifyType);
    /// Solves the graph if it has changed.
    void update();
    /// Whether the values as they stand fit.
    Error check() const;

    LiString const &getName() const { return _name; }
    LkRecLock const &getLock() const ZV_RETURN_CAPABILITY(_lock) { return _lock; }
    /// A mark for the user's own debugging; the manager does not act on it.
    void enableTracing(bool);
    bool isTracingEnabled() const;
    /// The name of an error. Any other value, `ALL_VALID` among them, aborts the program.
    static char const *errorToString(Error);
    /// The whole graph: all nodes, those that were fixed when added, all relations.
    void dump(std::ostream &) const;

protected:
    /// Solves the graph, under the lock. Here with the results of `solveInFull`, at the costs named above.
    virtual void performUpdate();
    /// A solving failed; under the lock. Throws the failure. One that returns lets the nodes be told as they stand.
    virtual void updateError(Error);

    /// The rule that all solving keeps to: walks every way through the graph. Under the lock.
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

    /// Puts `relation` in force in the place of `former`, in one solving; `former` stays in force if that throws.
    void replace(PriorityRelation &former, PriorityRelation &relation);
    /// Returns whether there was none.
    bool takeOffRelationsOf(Priority &);

    bool takeOffNoLock(Priority &) ZV_REQUIRES(_lock);
    void takeOffNoLock(PriorityRelation &) ZV_REQUIRES(_lock);
    void attachNoLock(PriorityRelation &, RelationEntries &) ZV_REQUIRES(_lock);
    void detachNoLock(PriorityRelation &, RelationEntries &) ZV_REQUIRES(_lock);
    void setStrayNoLock(PriorityRelation &, bool isStray) ZV_REQUIRES(_lock);
    std::uint64_t nextSearch();
    void renamed();

    LiString _name;
    bool _isTracing = false;
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
    bool _isRenamed = false; // a node of an `==` relation has another name; interlocked
    std::uint64_t _nbJoined ZV_GUARDED_BY(_lock) = 0;
    std::uint64_t _nbSearches ZV_GUARDED_BY(_lock) = 0;
    unsigned _nbStrays ZV_GUARDED_BY(_lock) = 0;
};

/// Writes the manager's dump.
ZVRESMGT_EXPORT std::ostream &operator<<(std::ostream &, PriorityMgr const &);

} // namespace Zv
