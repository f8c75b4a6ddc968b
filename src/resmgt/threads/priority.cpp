#include "resmgt/threads/priority.h"

#include "resmgt/locks/lkGuard.h"
#include "resmgt/threads/priorityEx.h"
#include "resmgt/threads/priorityMgr.h"
#include "resmgt/threads/priorityMgr.private.h"
#include "zvbase/failures.h"
#include "zvbase/scope.private.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace Zv {

using Guard = LkGuard<LkRecLock const>;

// ---- Priority

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
    bool const hasNoRelations = _mgr->takeOffRelationsOf(*this);
    leave();
    ZV_ASSERT_IN_DESTRUCTOR(hasNoRelations);
}

void Priority::join()
{
    _mgr->add(*this);
}

void Priority::leave()
{
    if (!_membership._order)
        return;
    throwUnlessUnwinding(Unwinding::ofAny(), __FILE__, __LINE__, [this] { _mgr->remove(*this); });
}

void Priority::setTelling(Telling telling)
{
    Guard guard(_mgr->getLock());
    _membership._telling = telling;
    _membership._isPresumedPlain = false;
    if (_membership._order)
        _mgr->_clients->changeTelling(*this);
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

void Priority::addRelation(PriorityRelation &relation, Side side, Relations &entry)
{
    Guard guard(_lock);
    relation._membership._sidePositions[side] = entry.begin();
    Relations &relations = getRelationsOf(relation, side);
    relations.splice(relations.end(), entry);
}

void Priority::removeRelation(PriorityRelation &relation, Side side, Relations &entry)
{
    Guard guard(_lock);
    entry.splice(entry.end(), getRelationsOf(relation, side),
                 relation._membership._sidePositions[side]);
}

Priority::Relations const &Priority::getOrders(Side side) const ZV_NO_THREAD_SAFETY_ANALYSIS
{
    return side == LEFT ? _dependants : _dependOns;
}

Priority::Relations const &Priority::getEquals() const ZV_NO_THREAD_SAFETY_ANALYSIS
{
    return _equals;
}

Priority const *Priority::findDependantRec(Priority const &target, std::uint64_t search) const
{
    // Without recursion, because a long chain would overflow a small stack.
    Vector<Priority const *> open{this};
    _membership._search = search;
    while (!open.empty()) {
        Priority const &node = *open.back();
        open.pop_back();
        for (PriorityRelation const *relation : node.getOrders(LEFT)) {
            Priority const &rhs = relation->getRhs();
            if (&rhs == &target)
                return &target;
            if (rhs._membership._search == search)
                continue; // searched already
            rhs._membership._search = search;
            open.push_back(&rhs);
        }
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
    if (_isVisiting)
        return;
    TemporaryValue const visiting(_isVisiting, true); // a relation may turn out to be none
    Side const opposite = getOpposite(side);
    auto const push = [side](Priority &target, int bound) {
        target.pushTransient(side, bound);
        target.set(side);
    };
    for (PriorityRelation const *relation : getOrders(side))
        push(relation->get(opposite), relation->computePriority(opposite, getTransient(side)));
    for (PriorityRelation const *relation : getEquals()) {
        // Compares names: between two nodes of the same name, bounds go to the right-hand side
        // only.
        if (getName() == relation->getLhs().getName())
            push(relation->getRhs(), relation->computeRhsPriority(getTransient(side)));
        else
            push(relation->getLhs(), relation->computeLhsPriority(getTransient(side)));
    }
}

void Priority::pushTransient(Side side, int bound)
{
    Guard guard(_lock);
    if (side == LEFT)
        _lhsTransient = std::max(_lhsTransient, bound);
    else
        _rhsTransient = std::min(_rhsTransient, bound);
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

void Priority::setTransient(Side side, int bound)
{
    Guard guard(_lock);
    (side == LEFT ? _lhsTransient : _rhsTransient) = bound;
}

void Priority::dump(std::ostream &os, bool withRelations) const
{
    std::ostringstream text; // the caller's stream is written without a lock
    if (withRelations) {
        // The line of a relation reads the other node as well.
        Guard guard(_mgr->getLock());
        dumpLine(text);
        dumpRelations(text, "Dependants: ", getOrders(LEFT));
        dumpRelations(text, "DependOns: ", getOrders(RIGHT));
        dumpRelations(text, "Equals: ", getEquals());
    } else {
        dumpLine(text);
    }
    os << text.str();
}

void Priority::dumpLine(std::ostream &os) const
{
    Guard guard(_lock);
    os << std::setw(20) << _name.getChars() << " prio " << std::setw(8) << _priority << " fixed "
       << _isFixed << " lhs " << std::setw(8) << _lhsTransient << " rhs " << std::setw(8)
       << _rhsTransient << '\n';
}

void Priority::dumpRelations(std::ostream &os, char const *title, Relations const &relations)
{
    os << title << '\n';
    for (PriorityRelation const *relation : relations) {
        relation->dump(os);
        os << '\n';
    }
}

// ---- PriorityRelation

namespace {

// Wraps around at the ends of the range of int.
int shifted(int value, int distance)
{
    return static_cast<int>(static_cast<unsigned>(value) + static_cast<unsigned>(distance));
}

} // namespace

PriorityRelation::PriorityRelation(LiString const &name, Priority &lhs, Relation relation,
                                   Priority &rhs)
    : PriorityRelation(name, lhs, relation, rhs, nullptr)
{}

PriorityRelation::PriorityRelation(LiString const &name, Priority &lhs, Relation relation,
                                   Priority &rhs, PriorityRelation *former)
    : _name(name), _relation(relation), _lhs(&lhs), _rhs(&rhs), _mgr(&lhs.getMgr())
{
    // Held from the test to the adding. Otherwise two threads could close a cycle together.
    LkGuard guard(_mgr->getLock());
    ZV_ASSERT( isValid() );
    try {
        if (former)
            _mgr->replace(*former, *this);
        else
            _mgr->add(*this);
    } catch (...) {
        _mgr->notify(PriorityMgr::RELATION_TAKEN_BACK);
        throw;
    }
}

PriorityRelation::~PriorityRelation() noexcept(false)
{
    throwUnlessUnwinding(Unwinding::ofAny(), __FILE__, __LINE__, [this] { _mgr->remove(*this); });
}

int PriorityRelation::computeLhsPriority(int rhsPriority) const
{
    switch (_relation) {
    case EQUAL:
    case LESS_EQUAL:
        return rhsPriority;
    case LESS:
        return shifted(rhsPriority, -1);
    default:
        ZV_ABORT_PROGRAM();
    }
}

int PriorityRelation::computeRhsPriority(int lhsPriority) const
{
    switch (_relation) {
    case EQUAL:
    case LESS_EQUAL:
        return lhsPriority;
    case LESS:
        return shifted(lhsPriority, 1);
    default:
        ZV_ABORT_PROGRAM();
    }
}

int PriorityRelation::computePriority(Side side, int opposite) const
{
    return side == LEFT ? computeLhsPriority(opposite) : computeRhsPriority(opposite);
}

bool PriorityRelation::check() const
{
    int const lhs = _lhs->getPriorityNoCheck();
    int const rhs = _rhs->getPriorityNoCheck();
    switch (_relation) {
    case EQUAL:
        return lhs == rhs;
    case LESS:
        return lhs < rhs;
    case LESS_EQUAL:
        return lhs <= rhs;
    default:
        ZV_ABORT_PROGRAM();
    }
}

char const *PriorityRelation::relationToString(Relation relation)
{
    switch (relation) {
    case EQUAL:
        return "==";
    case LESS:
        return "< ";
    case LESS_EQUAL:
        return "<=";
    default:
        ZV_ABORT_PROGRAM();
    }
}

void PriorityRelation::dump(std::ostream &os) const
{
    os << '"' << std::setw(10) << _name.getChars() << "\" : " << _lhs->getName().getChars() << " ( "
       << std::setw(4) << _lhs->getPriorityNoCheck() << " ) " << relationToString(_relation) << ' '
       << _rhs->getName().getChars() << " ( " << std::setw(4) << _rhs->getPriorityNoCheck() << " ) "
       << (check() ? "valid" : "NOT valid");
}

bool PriorityRelation::isValid() const
{
    if (&_lhs->getMgr() != _mgr || &_rhs->getMgr() != _mgr)
        return false;
    if (_lhs == _rhs)
        return _relation == EQUAL;
    return !_rhs->findDependantRec(*_lhs, _mgr->nextSearch());
}

void PriorityRelation::throwRelationInvalid() const
{
    ZV_THROW(PriorityEx::ExRelationInvalid, _name.getChars(), _lhs->getName().getChars(),
             _lhs->getPriorityNoCheck(), relationToString(_relation), _rhs->getName().getChars(),
             _rhs->getPriorityNoCheck());
}

} // namespace Zv
