// Solving by way of what changed.
#pragma once

#include "resmgt/threads/priority.h"
#include "resmgt/threads/priorityRelation.h"
#include "zvbase/containers.h"

#include <cstddef>

namespace Zv {

/// Solves a graph with the results of `PriorityMgr::solveInFull`, wherever that comes to a valid end, at the cost of
/// what changed. All under the manager's lock.
///
/// Why the results are the same. Each bound that the full solving passes on follows from relations, so no node's lower
/// bound rises above what the relations enforce; and where the final check passes, the lower bounds satisfy the
/// relations. They are then the least values that do, whatever the order in which they were found, and a fixed node's
/// bounds are its value. A valid graph has no ring of relations with a `<` in it; so each upper bound is the least
/// over all simple ways from fixed nodes, all of which the full solving walks. Both are fixed points, and those can be
/// kept up: a new relation passes bounds on until nothing changes; a relation that goes takes along what only it
/// upheld, which is then derived anew from what stands around it.
///
/// If a graph is invalid, the bounds of the full solving are what is reported: `solve` then gives up.
class PrioritySolver : private PriorityTypes
{
public:
    PrioritySolver(int minimum, int maximum);
    PrioritySolver(PrioritySolver const &) = delete;
    PrioritySolver &operator=(PrioritySolver const &) = delete;

    /// What changed since the last solving; a second change counts as everything. A relation stands in the lists of
    /// its nodes when it is added, and no longer when it is removed; it lives until `solve` or the next change.
    void nodeAdded(Priority &);
    void nodeRemoved();
    void relationAdded(PriorityRelation const &);
    void relationRemoved(PriorityRelation const &);
    /// Anything may have changed.
    void distrust() { _isSolved = false; }

    /// Solves the graph of these nodes. False where it is invalid, or nothing for this solver: the nodes' values then
    /// mean nothing.
    bool solve(List<Priority *> const &priorities);
    /// The nodes whose values may have changed in the last solving. Valid until something else happens.
    Vector<Priority *> const &getTouched() const { return _touched; }

    /// Returns the node that `source` passes bounds on to along this relation, or null for `source` itself.
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
    /// Derives anew what stands in `_affected` and whatever that upholds.
    bool rederive(Side);
    bool drawFromOthers(Side, Priority &);
    void noteLoss(Side, Priority &target, int bound);
    void noteLossOf(Side, PriorityRelation const &, Priority &source);
    void reset(Side, Priority &);
    void touch(Priority &);
    void enqueue(Priority &);

    /// Calls `visitor(target, bound)` for each relation along which the node passes a bound on, until one says no.
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
