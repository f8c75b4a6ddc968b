// A relation between two nodes of the priority graph.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/threads/priorityTypes.h"
#include "zvbase/containers.h"

#include <iosfwd>

namespace Zv {

class Priority;
class PriorityMgr;

/// Says that the left-hand priority equals, lies below, or does not lie above the right-hand one. In force from
/// constructor to destructor; both solve the graph. Both nodes belong to one manager and outlive the relation.
///
/// The operations only read. They may be called by any thread as long as both nodes live, and block as long as
/// another thread changes the nodes.
class ZVRESMGT_EXPORT PriorityRelation : public PriorityTypes
{
public:
    enum Relation : int
    {
        EQUAL,     ///< ==
        LESS,      ///< <
        LESS_EQUAL ///< <=
    };

    /// Fails the assertion "isValid()" if the nodes belong to different managers, if order relations already put the
    /// right-hand node below the left-hand node, or if a node is related to itself by `<` or `<=`. This is tested under
    /// the manager's lock. Throws what the solving throws; the graph is then solved again without the relation.
    ///
    /// An `==` between two nodes of one name passes bounds from left to right only.
    PriorityRelation(LiString const &name, Priority &lhs, Relation relation, Priority &rhs);
    PriorityRelation(PriorityRelation const &) = delete;
    PriorityRelation &operator=(PriorityRelation const &) = delete;
    /// While an exception is passing, what the solving throws is dropped.
    ~PriorityRelation() noexcept(false);

    LiString const &getName() const { return _name; }
    Priority &getLhs() const { return *_lhs; }
    Priority &getRhs() const { return *_rhs; }
    Priority &get(Side side) const { return side == LEFT ? *_lhs : *_rhs; }
    bool isRelation(Relation relation) const { return _relation == relation; }
    bool uses(Priority const &priority) const { return _lhs == &priority || _rhs == &priority; }

    /// Returns the highest left-hand value that satisfies the relation with this right-hand value.
    int computeLhsPriority(int rhsPriority) const;
    /// Returns the lowest right-hand value that satisfies the relation with this left-hand value.
    int computeRhsPriority(int lhsPriority) const;
    /// The bound on `side`, from the value of the opposite side.
    int computePriority(Side side, int opposite) const;
    /// Whether the current values satisfy the relation.
    bool check() const;

    /// "==", "< " or "<=". Any other value aborts the program.
    static char const *relationToString(Relation relation);
    /// One line, without its end.
    void dump(std::ostream &) const;

private:
    friend class Priority;
    friend class PriorityMgr;
    friend class PrioritySolver;
    friend class RtPrioritiesWinNT;

    /// A relation that takes the place of `former`, in one solving. `former` is then no longer in force, and is still
    /// to be destroyed. It may be null. If this throws, `former` stays in force.
    PriorityRelation(LiString const &name, Priority &lhs, Relation relation, Priority &rhs,
                     PriorityRelation *former);

    bool isValid() const;
    [[noreturn]] void throwRelationInvalid() const;

    LiString _name;
    Relation _relation;
    Priority *_lhs;
    Priority *_rhs;
    PriorityMgr *_mgr;

    // Where the relation stands, under the manager's lock.
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
