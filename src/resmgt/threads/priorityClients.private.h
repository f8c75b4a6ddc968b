// Who is told of solvings.
#pragma once

#include "zvbase/containers.h"

#include <cstdint>
#include <map>

namespace Zv {

class Priority;

/// The nodes of a manager that are to be told their values, so that a solving goes to those alone that want to hear
/// of it. All under the manager's lock.
class PriorityClients
{
public:
    PriorityClients() = default;
    PriorityClients(PriorityClients const &) = delete;
    PriorityClients &operator=(PriorityClients const &) = delete;

    /// A node that has its place among the joined. One that was built by the public constructor comes when that has
    /// done with it.
    void enter(Priority &);
    void withdraw(Priority &);
    /// The node wants to hear of solvings in another way from now on.
    void changeTelling(Priority &);

    /// Finds out which of these nodes, whose values may have changed, are to be told.
    void review(Vector<Priority *> const &);
    void reviewAll(List<Priority *> const &);
    /// A telling failed: the next one tells everybody.
    bool mustReviewAll() const { return _mustReviewAll; }

    /// Tells those who are to be told, in the order in which they joined. They may change the graph meanwhile, and
    /// this is then called again from within.
    void tell();

private:
    using ByOrder = std::map<std::uint64_t, Priority *>;

    void classifyNewcomers();
    Priority *findNext(std::uint64_t order) const;
    void review(Priority &);

    ByOrder
        _newcomers; // by the public constructor: not known yet whether `updatePriority` is overridden
    ByOrder _atEachSolving;
    ByOrder _untold;
    bool _mustReviewAll = false;
};

} // namespace Zv
