// Relation between two nodes of a priority graph: equal, less, less or equal (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "zvbase/containers.h"

#include <iosfwd>

namespace Zv {

class Priority;
class PriorityMgr;

/// The two sides of a relation between priorities.
class ZVRESMGT_EXPORT PriorityTypes
{
public:
    /// In the solver, the left-hand transient of a node is its lower bound, and the right-hand one
    /// its upper bound.
    enum Side : int
    {
        LEFT,
        RIGHT
    };

    /// Returns the other side.
    static Side getOpposite(Side side) { return side == LEFT ? RIGHT : LEFT; }
};

/// States that the left-hand priority is equal to, less than, or not greater than the right-hand
/// one. It is in force from its constructor to its destructor.
///
///     PriorityMgr mgr("levels", 0, 6);
///     Priority floor("floor", mgr, 3);
///     Priority worker("worker", mgr, Priority::NOT_SET);
///     PriorityRelation above("floor<worker", floor, PriorityRelation::LESS, worker);
///     worker.getPriority(); // 4
///
/// **Threads**: thread-safe, except the destructor.
///
/// **Blocks**: while another thread changes the graph.
///
/// **Owns**: nothing. Both nodes must belong to one manager and outlive the relation.
class ZVRESMGT_EXPORT PriorityRelation : public PriorityTypes
{
public:
    /// How the left-hand priority compares with the right-hand one.
    enum Relation : int
    {
        EQUAL,     ///< ==
        LESS,      ///< <
        LESS_EQUAL ///< <=
    };

    /// Adds the relation and solves the graph.
    ///
    /// Fails the assertion "isValid()" if the nodes belong to different managers, if order
    /// relations already put the right-hand node below the left-hand node, or if a node is related
    /// to itself by `<` or `<=`. Throws what the solving throws, see `PriorityMgr`. The graph is
    /// then solved again without the relation.
    ///
    /// An `==` between two nodes of the same name passes bounds from left to right only.
    PriorityRelation(LiString const &name, Priority &lhs, Relation relation, Priority &rhs);
    PriorityRelation(PriorityRelation const &) = delete;
    PriorityRelation &operator=(PriorityRelation const &) = delete;
    /// Removes the relation and solves the graph. Throws what the solving throws, except during
    /// stack unwinding.
    ~PriorityRelation() noexcept(false);

    LiString const &getName() const { return _name; }
    Priority &getLhs() const { return *_lhs; }
    Priority &getRhs() const { return *_rhs; }
    /// Returns the node on that side.
    Priority &get(Side side) const { return side == LEFT ? *_lhs : *_rhs; }
    /// Returns whether the nodes are related in that way.
    bool isRelation(Relation relation) const { return _relation == relation; }
    /// Returns whether `priority` is one of the two nodes.
    bool uses(Priority const &priority) const { return _lhs == &priority || _rhs == &priority; }

    /// Returns the highest left-hand value that satisfies the relation with this right-hand value.
    int computeLhsPriority(int rhsPriority) const;
    /// Returns the lowest right-hand value that satisfies the relation with this left-hand value.
    int computeRhsPriority(int lhsPriority) const;
    /// Returns the bound for the node on `side`, from the value of the node on the opposite side.
    int computePriority(Side side, int opposite) const;
    /// Returns whether the current values satisfy the relation.
    [[nodiscard]] bool check() const;

    /// Returns "==", "< " or "<=". Any other value aborts the program.
    static char const *relationToString(Relation relation);
    /// Writes one line, without its end.
    void dump(std::ostream &) const;

private:
    friend class Priority;
    friend class PriorityMgr;
    friend class PrioritySolver;
    friend class RtPrioritiesWinNT;

    /// Adds a relation and removes `former`, which may be null, in one solving. `former` must still
    /// be destroyed. If this throws, `former` stays in force.
    PriorityRelation(LiString const &name, Priority &lhs, Relation relation, Priority &rhs,
                     PriorityRelation *former);

    bool isValid() const;
    [[noreturn]] void throwRelationInvalid() const;

    LiString _name;
    Relation _relation;
    Priority *_lhs;
    Priority *_rhs;
    PriorityMgr *_mgr;

    // The places of the relation in the lists. The manager's lock guards them.
    struct Membership
    {
        List<PriorityRelation *>::iterator _position{};
        List<PriorityRelation *>::iterator _sidePositions[2]{};
        bool _isListed = false;   // in the manager's list
        bool _isAttached[2] = {}; // in its nodes' lists, by side
        bool _isStray = false;    // attached, but not listed, or a node of it has not joined
    };
    Membership _membership;
};

} // namespace Zv
