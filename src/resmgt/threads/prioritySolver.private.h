// Solver that updates a priority graph after one change.
#pragma once

#include "resmgt/threads/priority.h"
#include "zvbase/sequenceContainers.h"

#include <cstddef>

namespace Zv {

/// Solves a valid graph with the results of `PriorityMgr::solveInFull`, at a cost proportional to
/// what changed. The caller must hold the manager's lock.
///
/// Why the results are the same. Each bound that the full solving passes on follows from relations,
/// so no lower bound rises above what the relations enforce. If the final check passes, the lower
/// bounds satisfy the relations. They are then the least values that do, in any order of finding
/// them, and the bounds of a fixed node are its value. A valid graph has no ring of relations that
/// contains a `<`. So each upper bound is the least over all simple paths from fixed nodes, all of
/// which the full solving follows. Both are fixed points, and these can be updated. A new relation
/// passes bounds on until nothing changes. When a relation is removed, the bounds that it alone
/// upheld are removed too, and are then derived anew from the nodes around.
///
/// If a graph is invalid, the bounds of the full solving must be reported. `solve` then gives up.
class PrioritySolver : private PriorityTypes
{
public:
    PrioritySolver(int minimum, int maximum);
    PrioritySolver(PrioritySolver const &) = delete;
    PrioritySolver &operator=(PrioritySolver const &) = delete;

    // These note what changed since the last solving. After a second change, the next solving
    // starts from the beginning.

    void nodeAdded(Priority &);
    void nodeRemoved();
    /// The relation is in the lists of its nodes. It must live until `solve` or the next change.
    void relationAdded(PriorityRelation const &);
    /// The relation is no longer in the lists of its nodes. It must live until `solve` or the next
    /// change.
    void relationRemoved(PriorityRelation const &);
    /// Anything may have changed. The next solving starts from the beginning.
    void distrust() { _isSolved = false; }

    /// Solves the graph of these nodes. Returns false if the graph is invalid or outside the range
    /// of this solver. The values of the nodes are then meaningless.
    [[nodiscard]] bool solve(List<Priority *> const &priorities);
    /// Returns the nodes whose values may have changed in the last solving. Valid until the next
    /// call of this object.
    Vector<Priority *> const &getTouched() const { return _touched; }

    /// Returns the node that `source` passes bounds on to along this relation, or null for `source`
    /// itself.
    static Priority *findTarget(Side, PriorityRelation const &, Priority const &source);

private:
    enum Change
    {
        NOTHING,
        NODE_ADDED,
        NODE_REMOVED,
        RELATION_ADDED,
        RELATION_REMOVED
    };

    void note(Change, Priority *, PriorityRelation const *);
    bool applyChange();
    bool start(Priority &);
    bool startAll(List<Priority *> const &);
    bool connect(PriorityRelation const &);
    bool disconnect(PriorityRelation const &);
    bool finish();

    bool propagate(Side);
    bool spread(Side, Priority &source);
    bool improve(Side, Priority &target, int bound);
    /// Derives anew the bounds of the nodes in `_affected` and of all nodes that they uphold.
    bool rederive(Side);
    bool drawFromOthers(Side, Priority &);
    void noteLoss(Side, Priority &target, int bound);
    void noteLossOf(Side, PriorityRelation const &, Priority &source);
    void reset(Side, Priority &);
    void touch(Priority &);
    void enqueue(Priority &);

    /// Calls `visitor(target, bound)` for each relation along which the node passes a bound on,
    /// until a call returns false.
    template <class Visitor>
    static bool forEachTarget(Side, Priority &, Visitor const &visitor);
    static int computeBound(Side, PriorityRelation const &, int value);
    static bool hasRelations(Priority const &);

    int const _minimum;
    int const _maximum;
    bool _isSolved = false; // all nodes are as the last solving left them, and valid
    Change _change = NOTHING;
    Priority *_node = nullptr;
    PriorityRelation const *_relation = nullptr;
    std::size_t _nbNodes = 0;
    Vector<Priority *> _touched;
    Vector<Priority *> _affected;
    Vector<Priority *> _queue;
    Vector<Priority *> _batch;
};

} // namespace Zv
