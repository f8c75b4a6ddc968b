#include "resmgt/threads/priority.h"

#include "resmgt/locks/lkGuard.h"
#include "resmgt/threads/priorityEx.h"
#include "resmgt/threads/priorityMgr.h"
#include "resmgt/threads/priorityRelation.h"
#include "zvbase/failures.h"

#include <algorithm>
#include <exception>
#include <iomanip>
#include <ostream>

namespace Zv {

using Guard = LkGuard<LkRecLock const>;

namespace {

// Ends the visit also where a relation turns out to be none.
class Visit
{
public:
    explicit Visit(bool &isVisiting) : _isVisiting(isVisiting) { _isVisiting = true; }
    Visit(Visit const &) = delete;
    ~Visit() { _isVisiting = false; }

private:
    bool &_isVisiting;
};

} // namespace

Priority::Priority(LiString const &name, PriorityMgr &mgr, int priority)
    : Priority(name, mgr, priority, AT_EACH_SOLVING)
{
    _membership._isPresumedPlain = true;
    join();
}

Priority::Priority(Priority const &other)
    : Priority(other.getName(), *other._mgr, other.getPriorityNoCheck(), AT_EACH_SOLVING)
{
    _isFixed = other._isFixed;
    _membership._isPresumedPlain = true;
    join();
}

Priority::Priority(LiString const &name, PriorityMgr &mgr, int priority, Telling telling)
    : _name(name),
      _lock("Priority"),
      _mgr(&mgr),
      _isFixed(priority != NOT_SET),
      _priority(priority),
      _membership{}
{
    _membership._telling = telling;
    _membership._isPresumedPlain = false;
}

Priority::~Priority() noexcept(false)
{
    leave();
}

void Priority::join()
{
    _mgr->add(*this);
}

void Priority::leave()
{
    if (!_membership._order)
        return;
    try {
        _mgr->remove(*this);
    } catch (...) {
        if (!std::uncaught_exceptions())
            throw;
    }
}

void Priority::updatePriority(int) {}

int Priority::getPriority() const
{
    _mgr->update();
    return getPriorityNoCheck();
}

int Priority::getPriorityNoCheck() const
{
    Guard guard(_lock);
    return _priority;
}

void Priority::setPriority(int priority)
{
    {
        Guard guard(_lock);
        _priority = priority;
    }
    _mgr->notify(PriorityMgr::VALUE_CHANGED);
}

bool Priority::isIndependantButNotSet() const
{
    Guard guard(_lock);
    return !_isFixed && _dependOns.empty();
}

LiString Priority::getName() const
{
    Guard guard(_lock);
    return _name;
}

void Priority::setName(LiString const &name)
{
    bool matters;
    {
        Guard guard(_lock);
        _name = name;
        matters = !_equals.empty();
    }
    if (matters)
        _mgr->renamed();
}

Priority::Relations &Priority::getRelationsOf(PriorityRelation const &relation, Side side)
{
    if (relation.isRelation(PriorityRelation::EQUAL))
        return _equals;
    return side == LEFT ? _dependants : _dependOns;
}

void Priority::addRelation(PriorityRelation &relation, Side side)
{
    Guard guard(_lock);
    Relations &relations = getRelationsOf(relation, side);
    relation._membership._sidePositions[side] = relations.insert(relations.end(), &relation);
}

void Priority::removeRelation(PriorityRelation &relation, Side side)
{
    Guard guard(_lock);
    getRelationsOf(relation, side).erase(relation._membership._sidePositions[side]);
}

Priority const *Priority::findDependantRec(Priority const &target, std::uint64_t search) const
{
    Guard guard(_lock);
    _membership._search = search;
    for (PriorityRelation const *relation : _dependants) {
        Priority const &rhs = relation->getRhs();
        if (&rhs == &target)
            return &target;
        // What one way here did not lead to, no other does.
        if (rhs._membership._search != search && rhs.findDependantRec(target, search))
            return &target;
    }
    return nullptr;
}

void Priority::reset(int minimum, int maximum)
{
    Guard guard(_lock);
    _lhsTransient = _isFixed ? _priority : minimum;
    _rhsTransient = _isFixed ? _priority : maximum;
}

void Priority::set(Side side)
{
    Guard guard(_lock);
    if (_isVisiting)
        return;
    Visit const visit(_isVisiting);
    Side const opposite = getOpposite(side);
    for (PriorityRelation const *relation : side == LEFT ? _dependants : _dependOns)
        pushBound(side, relation->get(opposite),
                  relation->computePriority(opposite, transient(side)));
    for (PriorityRelation const *relation : _equals) {
        // By name: two nodes of one name send their bounds to the right-hand side alone.
        if (_name == relation->getLhs().getName())
            pushBound(side, relation->getRhs(), relation->computeRhsPriority(transient(side)));
        else
            pushBound(side, relation->getLhs(), relation->computeLhsPriority(transient(side)));
    }
}

void Priority::pushBound(Side side, Priority &target, int bound) const
{
    {
        Guard guard(target._lock);
        int &value = target.transient(side);
        value = side == LEFT ? std::max(value, bound) : std::min(value, bound);
    }
    target.set(side);
}

void Priority::updatePriorityFromTransient()
{
    Guard guard(_lock);
    if (!_isFixed)
        _priority = _lhsTransient != NOT_SET ? _lhsTransient : _rhsTransient;
}

bool Priority::checkTransient() const
{
    Guard guard(_lock);
    if (_isFixed)
        return true;
    return (_lhsTransient != NOT_SET || _rhsTransient != NOT_SET) && _lhsTransient <= _rhsTransient;
}

void Priority::throwTransientInvalid() const
{
    Guard guard(_lock);
    ZV_THROW(PriorityEx::ExTransientInvalid, _name.getChars(), _lhsTransient, _rhsTransient);
}

int Priority::getTransient(Side side) const
{
    Guard guard(_lock);
    return side == LEFT ? _lhsTransient : _rhsTransient;
}

void Priority::dump(std::ostream &os, bool withRelations) const
{
    // A relation's line reads its other node: only the manager's lock puts the locks of nodes in an order.
    Guard mgrGuard(_mgr->getLock());
    Guard guard(_lock);
    os << std::setw(20) << _name.getChars() << " prio " << std::setw(8) << _priority << " fixed "
       << _isFixed << " lhs " << std::setw(8) << _lhsTransient << " rhs " << std::setw(8)
       << _rhsTransient << std::endl;
    if (!withRelations)
        return;
    dumpRelations(os, "Dependants: ", _dependants);
    dumpRelations(os, "DependOns: ", _dependOns);
    dumpRelations(os, "Equals: ", _equals);
}

void Priority::dumpRelations(std::ostream &os, char const *title, Relations const &relations) const
{
    os << title << std::endl;
    for (PriorityRelation const *relation : relations) {
        relation->dump(os);
        os << std::endl;
    }
}

} // namespace Zv
