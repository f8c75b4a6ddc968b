// Solver that finds the bounds of a whole priority graph in one pass, also of an invalid one.
#pragma once

#include "resmgt/threads/priority.h"
#include "zvbase/sequenceContainers.h"

#include <cstddef>
#include <cstdint>

namespace Zv {

class Priority;

/// Finds the bounds that `PriorityMgr::solveInFull` finds, in time proportional to the size of the
/// graph.
///
/// The full solving follows every path through the graph that enters no node twice, and raises the
/// lower bounds (or lowers the upper bounds) on the way. A ring is a set of nodes that pass bounds
/// to each other in both directions. `==` relations make rings. If a ring contains no `<`, no bound
/// runs round it without end, and the full solving ends in the fixed point: each node has the
/// extreme of all bounds that reach it. Proof. Let `u` be a node that the solving reaches from its
/// start `s`, and `v` a node to which `u` passes a bound. If the paths `s..u` and `u..v` have no
/// other node in common, the solving follows one after the other. Otherwise let `x` be the last
/// node of `u..v` that is on `s..u`. It is in one ring with `u`. The solving follows `s..x..v`. The
/// bound with which `x` begins reaches at least as far as that of `u`, because `u` is free (a fixed
/// node is a start itself) and begins with the end of the range.
///
/// So the nodes are solved in the order of their relations, each ring as one node. Three kinds of
/// rings are left to the full solving, because their bounds depend on the order of its paths: a
/// ring that contains a `<`, one with a fixed node outside the range, and one with a node that has
/// left the manager. With a `<`, the bounds grow with each path that enters the ring. The values
/// that are reported then count the paths through the graph, and no quick method is known for that.
class PriorityRingSolver : private PriorityTypes
{
public:
    PriorityRingSolver(int minimum, int maximum) : _minimum(minimum), _maximum(maximum) {}

    /// Finds the bounds on one side. The nodes in `priorities` must have been reset. `search` marks
    /// the nodes that are reached. No former search may have had this number. Returns false and
    /// changes no bound if the full solving is needed. The caller must hold the manager's lock.
    [[nodiscard]] bool solve(Side side, List<Priority *> const &priorities, std::uint64_t search);
    /// Stores the bounds that `solve` has found in the nodes.
    void apply() const;

private:
    struct Node
    {
        Priority *priority;
        int bound;
        std::size_t firstArc = 0;
        std::size_t number = 0; // in the order of finding, from 1; 0 before
        std::size_t lowest = 0; // the lowest number that the node leads back to
        bool isSettled = false; // its ring is known
        std::size_t ring = 0;
    };
    struct Arc
    {
        std::size_t target;
        PriorityRelation const *relation;
    };

    void addStarts(List<Priority *> const &priorities);
    std::size_t find(Priority &);
    void addArcs(std::size_t index);
    void findRings();
    void findRingsFrom(std::size_t start);
    void settleRing(std::size_t index);
    bool isTame(std::size_t first, std::size_t end) const;
    bool passOn(std::size_t index);
    std::size_t endOfArcs(std::size_t index) const;
    int furthest(int left, int right) const;

    int const _minimum;
    int const _maximum;
    Side _side = LEFT;
    std::uint64_t _search = 0;
    Vector<Node> _nodes;
    Vector<Arc> _arcs;
    std::size_t _nbNumbered = 0;
    Vector<std::size_t> _open;  // nodes whose ring is not known yet
    Vector<std::size_t> _order; // nodes ring by ring, each ring before the rings that lead to it
};

} // namespace Zv
