// Part of the priority graph that tells the nodes their values.
#pragma once

#include "zvbase/sequenceContainers.h"

#include <cstdint>
#include <map>

namespace Zv {

class Priority;

/// The nodes of a manager that must be told their values, so that a solving costs nothing for the
/// others. The caller must hold the manager's lock.
class PriorityClients
{
public:
    PriorityClients() = default;
    PriorityClients(PriorityClients const &) = delete;
    PriorityClients &operator=(PriorityClients const &) = delete;

    /// Adds a node that has joined the graph.
    void enter(Priority &);
    /// Removes a node that leaves the graph.
    void withdraw(Priority &);
    /// The node's `Priority::Telling` has changed.
    void changeTelling(Priority &);

    /// Finds out which of these nodes, whose values may have changed, must be told.
    void review(Vector<Priority *> const &);
    void reviewAll(List<Priority *> const &);
    /// Returns true if a call of `tell` failed. The next solving must then call `reviewAll`.
    bool mustReviewAll() const { return _mustReviewAll; }

    /// Tells each node that must be told its value, in the order in which the nodes joined. A node
    /// may change the graph meanwhile, which calls `tell` again from within.
    void tell();

private:
    using ByOrder = std::map<std::uint64_t, Priority *>;

    Priority *findNext(std::uint64_t order) const;
    void review(Priority &);
    static bool isPlain(Priority const &);

    ByOrder _atEachSolving;
    ByOrder _untold; // wants to hear of changes, and its value is another one than it was told
    bool _mustReviewAll = false;
};

} // namespace Zv
