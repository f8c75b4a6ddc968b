#include "resmgt/threads/priorityRingSolver.private.h"

#include "resmgt/locks/lkGuard.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/prioritySolver.private.h"

#include <algorithm>
#include <limits>

namespace Zv {

bool PriorityRingSolver::solve(Side side, List<Priority *> const &priorities, std::uint64_t search)
{
    _side = side;
    _search = search;
    addStarts(priorities);
    for (std::size_t index = 0; index != _nodes.size(); ++index)
        addArcs(index);
    findRings();
    for (std::size_t end = _order.size(); end != 0;) {
        std::size_t first = end - 1;
        while (first != 0 && _nodes[_order[first - 1]].ring == _nodes[_order[end - 1]].ring)
            --first;
        if (!isTame(first, end))
            return false;
        int bound = _nodes[_order[first]].bound;
        for (std::size_t place = first; place != end; ++place)
            bound = furthest(bound, _nodes[_order[place]].bound);
        for (std::size_t place = first; place != end; ++place) {
            _nodes[_order[place]].bound = bound;
            if (!passOn(_order[place]))
                return false;
        }
        end = first;
    }
    return true;
}

void PriorityRingSolver::apply() const
{
    for (Node const &node : _nodes)
        node.priority->setTransient(_side, node.bound);
}

void PriorityRingSolver::addStarts(List<Priority *> const &priorities)
{
    for (Priority *priority : priorities) {
        if (priority->isPriorityFixed() || (_side == LEFT && priority->isIndependantButNotSet()))
            find(*priority);
    }
}

std::size_t PriorityRingSolver::find(Priority &priority)
{
    Priority::Membership &membership = priority._membership;
    if (membership._search != _search) {
        _nodes.push_back({.priority = &priority, .bound = priority.getTransient(_side)});
        membership._search = _search;
        membership._index = _nodes.size() - 1;
    }
    return membership._index;
}

void PriorityRingSolver::addArcs(std::size_t index)
{
    Priority &priority = *_nodes[index].priority;
    _nodes[index].firstArc = _arcs.size();
    for (PriorityRelation const *relation : priority.getOrders(_side))
        _arcs.push_back({find(relation->get(getOpposite(_side))), relation});
    for (PriorityRelation const *relation : priority.getEquals()) {
        if (Priority * const target = PrioritySolver::findTarget(_side, *relation, priority))
            _arcs.push_back({find(*target), relation});
    }
}

std::size_t PriorityRingSolver::endOfArcs(std::size_t index) const
{
    return index + 1 == _nodes.size() ? _arcs.size() : _nodes[index + 1].firstArc;
}

// Rings are strongly connected components. This is Tarjan's algorithm without recursion, because
// any thread may solve the graph, also one with a small stack.
void PriorityRingSolver::findRings()
{
    for (std::size_t index = 0; index != _nodes.size(); ++index) {
        if (_nodes[index].number == 0)
            findRingsFrom(index);
    }
}

void PriorityRingSolver::findRingsFrom(std::size_t start)
{
    struct Step
    {
        std::size_t index;
        std::size_t arc;
    };
    Vector<Step> steps;
    auto const enter = [&](std::size_t index) {
        _nodes[index].number = _nodes[index].lowest = ++_nbNumbered;
        _open.push_back(index);
        steps.push_back({index, _nodes[index].firstArc});
    };
    enter(start);
    while (!steps.empty()) {
        std::size_t const index = steps.back().index;
        Node &node = _nodes[index];
        if (steps.back().arc != endOfArcs(index)) {
            std::size_t const target = _arcs[steps.back().arc++].target;
            if (_nodes[target].number == 0)
                enter(target);
            else if (!_nodes[target].isSettled)
                node.lowest = std::min(node.lowest, _nodes[target].number);
            continue;
        }
        steps.pop_back();
        if (!steps.empty()) {
            Node &former = _nodes[steps.back().index];
            former.lowest = std::min(former.lowest, node.lowest);
        }
        if (node.lowest == node.number)
            settleRing(index);
    }
}

void PriorityRingSolver::settleRing(std::size_t index)
{
    std::size_t member;
    do {
        member = _open.back();
        _open.pop_back();
        _nodes[member].isSettled = true;
        _nodes[member].ring = _nodes[index].number;
        _order.push_back(member);
    } while (member != index);
}

bool PriorityRingSolver::isTame(std::size_t first, std::size_t end) const
{
    if (end - first == 1)
        return true;
    for (std::size_t place = first; place != end; ++place) {
        Node const &node = _nodes[_order[place]];
        bool const isOutside = _side == LEFT ? node.priority->getTransient(LEFT) < _minimum
                                             : node.priority->getTransient(RIGHT) > _maximum;
        if (isOutside || !node.priority->_membership._order)
            return false;
        for (std::size_t arc = node.firstArc; arc != endOfArcs(_order[place]); ++arc) {
            if (_nodes[_arcs[arc].target].ring == node.ring &&
                _arcs[arc].relation->isRelation(PriorityRelation::LESS))
                return false;
        }
    }
    return true;
}

bool PriorityRingSolver::passOn(std::size_t index)
{
    int const bound = _nodes[index].bound;
    int const last =
        _side == LEFT ? std::numeric_limits<int>::max() : std::numeric_limits<int>::min();
    for (std::size_t arc = _nodes[index].firstArc; arc != endOfArcs(index); ++arc) {
        PriorityRelation const &relation = *_arcs[arc].relation;
        if (bound == last && relation.isRelation(PriorityRelation::LESS))
            return false; // the next value would wrap around
        Node &target = _nodes[_arcs[arc].target];
        target.bound = furthest(target.bound, relation.computePriority(getOpposite(_side), bound));
    }
    return true;
}

int PriorityRingSolver::furthest(int left, int right) const
{
    return _side == LEFT ? std::max(left, right) : std::min(left, right);
}

} // namespace Zv
