#include "resmgt/threads/priorityClients.private.h"

#include "resmgt/locks/lkGuard.h"
#include "resmgt/threads/priority.h"

#include <typeinfo>

namespace Zv {

void PriorityClients::enter(Priority &priority)
{
    Priority::Membership &membership = priority._membership;
    if (membership._telling == Priority::AT_EACH_SOLVING)
        _atEachSolving.emplace(membership._order, &priority);
    membership._wasTold = false;
}

void PriorityClients::withdraw(Priority &priority)
{
    std::uint64_t const order = priority._membership._order;
    _atEachSolving.erase(order);
    _untold.erase(order);
}

void PriorityClients::changeTelling(Priority &priority)
{
    withdraw(priority);
    enter(priority);
    review(priority);
}

// A node of the class `Priority` itself overrides nothing and need not be called. In a large graph
// nearly all nodes are such. The class is known only after the node's constructor, so it is asked
// when the node would be told.
bool PriorityClients::isPlain(Priority const &priority)
{
    return priority._membership._isPresumedPlain && typeid(priority) == typeid(Priority);
}

void PriorityClients::review(Priority &priority)
{
    Priority::Membership const &membership = priority._membership;
    if (membership._telling != Priority::WHEN_CHANGED)
        return;
    if (_mustReviewAll || !membership._wasTold || membership._told != priority.getPriorityNoCheck())
        _untold.emplace(membership._order, &priority);
    else
        _untold.erase(membership._order);
}

void PriorityClients::review(Vector<Priority *> const &priorities)
{
    for (Priority *priority : priorities)
        review(*priority);
}

void PriorityClients::reviewAll(List<Priority *> const &priorities)
{
    for (Priority *priority : priorities)
        review(*priority);
    _mustReviewAll = false;
}

Priority *PriorityClients::findNext(std::uint64_t order) const
{
    auto const each = _atEachSolving.upper_bound(order);
    auto const untold = _untold.upper_bound(order);
    if (untold == _untold.end())
        return each == _atEachSolving.end() ? nullptr : each->second;
    return each != _atEachSolving.end() && each->first < untold->first ? each->second
                                                                       : untold->second;
}

void PriorityClients::tell()
{
    // From order to order, not along a list: a node that is told may add and remove nodes, itself
    // among them.
    std::uint64_t order = 0;
    while (Priority *priority = findNext(order)) {
        Priority::Membership &membership = priority->_membership;
        order = membership._order;
        if (isPlain(*priority)) {
            _atEachSolving.erase(order);
            continue;
        }
        int const value = priority->getPriorityNoCheck();
        membership._told = value;
        membership._wasTold = true;
        _untold.erase(order);
        try {
            priority->updatePriority(value);
        } catch (...) {
            _mustReviewAll = true;
            throw;
        }
    }
}

} // namespace Zv
