#include "resmgt/threads/prioritySolver.private.h"

#include "resmgt/locks/lkGuard.h"

#include <algorithm>
#include <limits>

namespace Zv {

using Guard = LkGuard<LkRecLock const>;

PrioritySolver::PrioritySolver(int minimum, int maximum) : _minimum(minimum), _maximum(maximum) {}

void PrioritySolver::note(Change change, Priority *node, PriorityRelation const *relation)
{
    if (_change != NOTHING)
        _isSolved = false;
    _change = change;
    _node = node;
    _relation = relation;
}

void PrioritySolver::nodeAdded(Priority &node)
{
    note(NODE_ADDED, &node, nullptr);
}

void PrioritySolver::nodeRemoved()
{
    note(NODE_REMOVED, nullptr, nullptr);
}

void PrioritySolver::relationAdded(PriorityRelation const &relation)
{
    note(RELATION_ADDED, nullptr, &relation);
}

void PrioritySolver::relationRemoved(PriorityRelation const &relation)
{
    note(RELATION_REMOVED, nullptr, &relation);
}

bool PrioritySolver::solve(List<Priority *> const &priorities)
{
    _touched.clear();
    _affected.clear();
    _queue.clear();
    _nbNodes = priorities.size();
    // The full solving treats a value of -1 as not set, and nothing exceeds the largest value.
    bool const isInRange = _minimum >= 0 && _maximum < std::numeric_limits<int>::max();
    bool const knowsChange = _isSolved;
    _isSolved = false;
    bool const isValid =
        isInRange && (knowsChange ? applyChange() : startAll(priorities)) && finish();
    _change = NOTHING;
    _isSolved = isValid;
    return isValid;
}

bool PrioritySolver::applyChange()
{
    switch (_change) {
    case NODE_ADDED:
        return start(*_node);
    case RELATION_ADDED:
        return connect(*_relation);
    case RELATION_REMOVED:
        return disconnect(*_relation);
    default:
        return true; // the node had no relations, so it did not affect the others
    }
}

bool PrioritySolver::start(Priority &node)
{
    Guard guard(node._lock);
    node._membership._isAffected = node._membership._isQueued = node._membership._isTouched = false;
    touch(node);
    node._membership._isBounded = node._isFixed;
    if (!node._isFixed) {
        node._lhsTransient = _minimum;
        node._rhsTransient = _maximum;
        return true;
    }
    node._lhsTransient = node._rhsTransient = node._priority;
    return node._priority != std::numeric_limits<int>::max() &&
           node._priority != std::numeric_limits<int>::min();
}

bool PrioritySolver::startAll(List<Priority *> const &priorities)
{
    for (Priority *node : priorities) {
        if (!start(*node))
            return false;
    }
    for (Side side : {RIGHT, LEFT}) {
        for (Priority *node : priorities)
            enqueue(*node);
        if (!propagate(side))
            return false;
    }
    return true;
}

bool PrioritySolver::connect(PriorityRelation const &relation)
{
    // Upper bounds first, because the lower bounds that rise are compared with them.
    for (Side side : {RIGHT, LEFT}) {
        for (Priority *source : {relation._lhs, relation._rhs}) {
            Priority * const target = findTarget(side, relation, *source);
            if (!target || (side == RIGHT && !source->_membership._isBounded))
                continue;
            if (!improve(side, *target, computeBound(side, relation, source->getTransient(side))))
                return false;
        }
        if (!propagate(side))
            return false;
    }
    // Between nodes of the same name, `==` works in one direction. All other relations hold if no
    // bound can be improved.
    return !relation.isRelation(PriorityRelation::EQUAL) ||
           relation._lhs->getTransient(LEFT) == relation._rhs->getTransient(LEFT);
}

bool PrioritySolver::disconnect(PriorityRelation const &relation)
{
    for (Side side : {RIGHT, LEFT}) {
        _affected.clear();
        noteLossOf(side, relation, *relation._lhs);
        noteLossOf(side, relation, *relation._rhs);
        if (!rederive(side) || !propagate(side))
            return false;
    }
    return true;
}

bool PrioritySolver::finish()
{
    for (Priority *node : _touched) {
        Guard guard(node->_lock);
        node->_membership._isAffected = node->_membership._isTouched = false;
        if (node->_isFixed)
            continue;
        if (node->_lhsTransient > node->_rhsTransient)
            return false;
        node->_priority = node->_lhsTransient;
    }
    // The only kind of relation that may be broken now, see connect().
    for (Priority const *node : _touched) {
        for (PriorityRelation const *relation : node->getEquals()) {
            if (!relation->check())
                return false;
        }
    }
    return true;
}

bool PrioritySolver::propagate(Side side)
{
    // If bounds still change after as many rounds as there are nodes, they run round a ring.
    for (std::size_t round = 0; !_queue.empty(); ++round) {
        if (round > _nbNodes)
            return false;
        _batch.swap(_queue);
        _queue.clear();
        for (Priority *node : _batch) {
            node->_membership._isQueued = false;
            if (!spread(side, *node))
                return false;
        }
    }
    return true;
}

bool PrioritySolver::spread(Side side, Priority &source)
{
    if (side == RIGHT && !source._membership._isBounded)
        return true;
    return forEachTarget(side, source, [this, side](Priority &target, int bound) {
        return improve(side, target, bound);
    });
}

bool PrioritySolver::improve(Side side, Priority &target, int bound)
{
    Guard guard(target._lock);
    if (target._isFixed)
        return side == LEFT ? bound <= target._lhsTransient : bound >= target._rhsTransient;
    if (side == LEFT) {
        if (bound <= target._lhsTransient)
            return true;
        target._lhsTransient = bound;
        if (bound > target._rhsTransient)
            return false;
    } else {
        if (target._membership._isBounded && bound >= target._rhsTransient)
            return true;
        target._membership._isBounded = true;
        target._rhsTransient = std::min(target._rhsTransient, bound);
        if (bound < _minimum)
            return false;
    }
    touch(target);
    enqueue(target);
    return true;
}

bool PrioritySolver::rederive(Side side)
{
    // The bounds that the affected nodes uphold are affected too. This finds a ring that upholds
    // only itself.
    for (std::size_t index = 0; index < _affected.size(); ++index) {
        forEachTarget(side, *_affected[index], [this, side](Priority &target, int bound) {
            noteLoss(side, target, bound);
            return true;
        });
    }
    for (Priority *node : _affected)
        reset(side, *node);
    for (Priority *node : _affected) {
        node->_membership._isAffected = false;
        if (!drawFromOthers(side, *node))
            return false;
    }
    return true;
}

bool PrioritySolver::drawFromOthers(Side side, Priority &node)
{
    auto const drawFrom = [&](PriorityRelation const &relation, Priority &source) {
        if (findTarget(side, relation, source) != &node ||
            (side == RIGHT && !source._membership._isBounded))
            return true;
        return improve(side, node, computeBound(side, relation, source.getTransient(side)));
    };
    for (PriorityRelation const *relation : node.getOrders(getOpposite(side))) {
        if (!drawFrom(*relation, relation->get(side)))
            return false;
    }
    for (PriorityRelation const *relation : node.getEquals()) {
        if (!drawFrom(*relation, relation->_lhs == &node ? *relation->_rhs : *relation->_lhs))
            return false;
    }
    return true;
}

void PrioritySolver::noteLoss(Side side, Priority &target, int bound)
{
    Priority::Membership &membership = target._membership;
    if (target._isFixed || membership._isAffected)
        return;
    int const value = target.getTransient(side);
    bool const upholds = side == LEFT ? value == bound && value > _minimum
                                      : membership._isBounded && value == std::min(_maximum, bound);
    if (!upholds)
        return;
    membership._isAffected = true;
    _affected.push_back(&target);
}

void PrioritySolver::noteLossOf(Side side, PriorityRelation const &relation, Priority &source)
{
    Priority * const target = findTarget(side, relation, source);
    if (!target)
        return;
    if (source._isFixed || hasRelations(source)) {
        if (side == LEFT || source._membership._isBounded)
            noteLoss(side, *target, computeBound(side, relation, source.getTransient(side)));
    } else if (side == LEFT) {
        // A free node without other relations passed on its minimum only. A higher bound came from
        // the target.
        noteLoss(side, *target, computeBound(side, relation, _minimum));
    }
}

void PrioritySolver::reset(Side side, Priority &node)
{
    Guard guard(node._lock);
    if (side == LEFT) {
        node._lhsTransient = _minimum;
    } else {
        node._rhsTransient = _maximum;
        node._membership._isBounded = false;
    }
    touch(node);
}

void PrioritySolver::touch(Priority &node)
{
    if (node._membership._isTouched)
        return;
    node._membership._isTouched = true;
    _touched.push_back(&node);
}

void PrioritySolver::enqueue(Priority &node)
{
    if (node._membership._isQueued)
        return;
    node._membership._isQueued = true;
    _queue.push_back(&node);
}

template <class Visitor>
bool PrioritySolver::forEachTarget(Side side, Priority &node, Visitor const &visitor)
{
    int const value = node.getTransient(side);
    for (PriorityRelation const *relation : node.getOrders(side)) {
        if (!visitor(relation->get(getOpposite(side)), computeBound(side, *relation, value)))
            return false;
    }
    for (PriorityRelation const *relation : node.getEquals()) {
        Priority * const target = findTarget(side, *relation, node);
        if (target && !visitor(*target, value))
            return false;
    }
    return true;
}

Priority *PrioritySolver::findTarget(Side side, PriorityRelation const &relation,
                                     Priority const &source)
{
    if (!relation.isRelation(PriorityRelation::EQUAL))
        return &relation.get(side) == &source ? &relation.get(getOpposite(side)) : nullptr;
    if (relation._lhs == relation._rhs)
        return nullptr;
    if (&source == relation._lhs)
        return relation._rhs;
    return source.getName() == relation._lhs->getName() ? nullptr : relation._lhs;
}

int PrioritySolver::computeBound(Side side, PriorityRelation const &relation, int value)
{
    return relation.computePriority(getOpposite(side), value);
}

bool PrioritySolver::hasRelations(Priority const &node)
{
    return !node.getOrders(LEFT).empty() || !node.getOrders(RIGHT).empty() ||
           !node.getEquals().empty();
}

} // namespace Zv
