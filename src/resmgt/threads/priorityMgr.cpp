#include "resmgt/threads/priorityMgr.h"

#include "resmgt/locks/lkGuard.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/priorityEx.h"
#include "resmgt/threads/priorityMgr.private.h"
#include "resmgt/threads/priorityRingSolver.private.h"
#include "resmgt/threads/prioritySolver.private.h"
#include "zvbase/dotText.private.h"
#include "zvbase/failures.h"
#include "zvbase/platform/shared.h"

#include <new>
#include <sstream>
#include <string>
#include <typeinfo>

namespace Zv {

using Detail::writeDotString;
using Guard = LkGuard<LkRecLock const>;

/// The entries of a relation in the lists of its nodes and of the manager. They are allocated
/// before a change, so that the change itself allocates nothing.
struct PriorityMgr::RelationEntries
{
    RelationEntries() = default;
    /// Allocates the entries that the relation lacks.
    explicit RelationEntries(PriorityRelation &relation)
        : _listed(relation._membership._isListed ? 0 : 1, &relation),
          _attached{
              List<PriorityRelation *>(relation._membership._isAttached[0] ? 0 : 1, &relation),
              List<PriorityRelation *>(relation._membership._isAttached[1] ? 0 : 1, &relation)}
    {}

    List<PriorityRelation *> _listed;
    List<PriorityRelation *> _attached[2];
};

PriorityMgr::PriorityMgr(LiString const &name, int minimum, int maximum)
    : _name(name),
      _lock("PriorityMgr"),
      _minimum(minimum),
      _maximum(maximum),
      _solver(new PrioritySolver(minimum, maximum)),
      _clients(new PriorityClients)
{}

PriorityMgr::~PriorityMgr() noexcept(false) = default;

void PriorityMgr::add(Priority &priority)
{
    Guard guard(_lock);
    ZV_ASSERT(&priority.getMgr() == this);
    Priority::Membership &membership = priority._membership;
    if (membership._order)
        return notifyNoLock(VALUE_CHANGED);
    List<Priority *> joining{&priority};
    List<Priority *> joiningFixed(priority.isPriorityFixed() ? 1 : 0, &priority);
    membership._position = joining.begin();
    membership._independantPosition = joiningFixed.begin();
    _priorities.splice(_priorities.end(), joining);
    _independant.splice(_independant.end(), joiningFixed);
    membership._order = ++_nbJoined;
    try {
        if (!membership._isPresumedPlain)
            _clients->enter(priority);
        _solver->nodeAdded(priority);
        _isDirty = true;
        updateNoLock();
        // The constructor of a derived class may still have to run. A later solving finds the class
        // of the node.
        if (membership._isPresumedPlain)
            _clients->enter(priority);
    } catch (...) {
        takeOffNoLock(priority);
        _solver->distrust();
        throw;
    }
}

void PriorityMgr::remove(Priority &priority)
{
    Guard guard(_lock);
    ZV_ASSERT(&priority.getMgr() == this);
    removeRelationsNoLock(&priority);
    if (takeOffNoLock(priority))
        _solver->nodeRemoved();
    else
        _solver->distrust();
    _isDirty = true;
    try {
        updateNoLock();
    } catch (std::bad_alloc const &) { // the removal stays; the next solving catches up
        _isDirty = true;
    }
}

void PriorityMgr::add(PriorityRelation &relation)
{
    Guard guard(_lock);
    ZV_ASSERT(relation._mgr == this);
    if (relation._membership._isListed)
        return notifyNoLock(VALUE_CHANGED);
    RelationEntries entries(relation);
    attachNoLock(relation, entries);
    try {
        _solver->relationAdded(relation);
        _isDirty = true;
        updateNoLock();
    } catch (...) {
        takeOffNoLock(relation);
        _solver->distrust();
        throw;
    }
}

void PriorityMgr::replace(PriorityRelation &former, PriorityRelation &relation)
{
    Guard guard(_lock);
    RelationEntries entries(relation);
    RelationEntries formerEntries;
    detachNoLock(former, formerEntries);
    attachNoLock(relation, entries);
    try {
        _solver->distrust();
        _isDirty = true;
        updateNoLock();
    } catch (...) {
        takeOffNoLock(relation);
        attachNoLock(former, formerEntries);
        _solver->distrust();
        throw;
    }
}

void PriorityMgr::remove(PriorityRelation &relation)
{
    Guard guard(_lock);
    ZV_ASSERT(relation._mgr == this);
    if (relation._membership._isListed)
        _solver->relationRemoved(relation);
    else
        _solver->distrust();
    takeOffNoLock(relation);
    _isDirty = true;
    try {
        updateNoLock();
    } catch (std::bad_alloc const &) { // the removal stays; the next solving catches up
        _isDirty = true;
    }
}

bool PriorityMgr::takeOffNoLock(Priority &priority)
{
    Priority::Membership &membership = priority._membership;
    if (!membership._order)
        return false;
    _clients->withdraw(priority);
    auto const position = findPriorityNoLock(_priorities, &priority);
    auto const independant = findPriorityNoLock(_independant, &priority);
    if (position != _priorities.end())
        _priorities.erase(position);
    if (independant != _independant.end())
        _independant.erase(independant);
    membership._order = 0;
    return true;
}

void PriorityMgr::takeOffNoLock(PriorityRelation &relation)
{
    RelationEntries entries;
    detachNoLock(relation, entries);
}

void PriorityMgr::attachNoLock(PriorityRelation &relation, RelationEntries &entries)
{
    PriorityRelation::Membership &membership = relation._membership;
    for (PriorityTypes::Side side : {PriorityTypes::LEFT, PriorityTypes::RIGHT}) {
        if (entries._attached[side].empty())
            continue;
        relation.get(side).addRelation(relation, side, entries._attached[side]);
        membership._isAttached[side] = true;
    }
    if (!entries._listed.empty()) {
        membership._position = entries._listed.begin();
        _relations.splice(_relations.end(), entries._listed);
        membership._isListed = true;
    }
    setStrayNoLock(relation,
                   !relation._lhs->_membership._order || !relation._rhs->_membership._order);
}

void PriorityMgr::detachNoLock(PriorityRelation &relation, RelationEntries &entries)
{
    PriorityRelation::Membership &membership = relation._membership;
    setStrayNoLock(relation, false);
    for (PriorityTypes::Side side : {PriorityTypes::LEFT, PriorityTypes::RIGHT}) {
        if (membership._isAttached[side])
            relation.get(side).removeRelation(relation, side, entries._attached[side]);
        membership._isAttached[side] = false;
    }
    auto const position = findRelationNoLock(&relation);
    if (position != _relations.end())
        entries._listed.splice(entries._listed.end(), _relations, position);
    membership._isListed = false;
}

bool PriorityMgr::takeOffRelationsOf(Priority &priority)
{
    Guard guard(_lock);
    bool hasNone = true;
    for (Priority::Relations const *relations :
         {&priority.getOrders(PriorityTypes::LEFT), &priority.getOrders(PriorityTypes::RIGHT),
          &priority.getEquals()}) {
        while (!relations->empty()) {
            takeOffNoLock(*relations->front());
            _solver->distrust();
            _isDirty = true;
            hasNone = false;
        }
    }
    return hasNone;
}

void PriorityMgr::setStrayNoLock(PriorityRelation &relation, bool isStray)
{
    PriorityRelation::Membership &membership = relation._membership;
    if (membership._isStray == isStray)
        return;
    membership._isStray = isStray;
    _nbStrays += isStray ? 1 : -1;
}

List<Priority *>::iterator PriorityMgr::findPriorityNoLock(List<Priority *> &priorities,
                                                           Priority const *priority)
{
    // Nodes and relations store their places, so that no list is searched.
    Priority::Membership const &membership = priority->_membership;
    if (!membership._order)
        return priorities.end();
    if (&priorities == &_priorities)
        return membership._position;
    return priority->isPriorityFixed() ? membership._independantPosition : priorities.end();
}

List<PriorityRelation *>::iterator PriorityMgr::findRelationNoLock(PriorityRelation const *relation)
{
    PriorityRelation::Membership const &membership = relation->_membership;
    return membership._isListed ? membership._position : _relations.end();
}

unsigned PriorityMgr::removeRelationsNoLock(Priority *priority)
{
    unsigned nbRemoved = 0;
    for (Priority::Relations const *relations :
         {&priority->getOrders(PriorityTypes::LEFT), &priority->getOrders(PriorityTypes::RIGHT),
          &priority->getEquals()}) {
        for (PriorityRelation *relation : *relations) {
            setStrayNoLock(*relation, true);
            if (!relation->_membership._isListed)
                continue;
            _relations.erase(findRelationNoLock(relation));
            relation->_membership._isListed = false;
            ++nbRemoved;
        }
    }
    return nbRemoved;
}

void PriorityMgr::notify(NotifyType type)
{
    Guard guard(_lock);
    notifyNoLock(type);
}

void PriorityMgr::notifyNoLock(NotifyType)
{
    _solver->distrust();
    _isDirty = true;
    updateNoLock();
}

void PriorityMgr::update()
{
    Guard guard(_lock);
    updateNoLock();
}

void PriorityMgr::updateNoLock()
{
    try {
        while (_isDirty) {
            _isDirty = false;
            _isVerified = false;
            performUpdate();
            Error const error = _isVerified ? ALL_VALID : checkNoLock();
            if (error != ALL_VALID)
                updateError(error);
            if (!_isVerified || _clients->mustReviewAll())
                _clients->reviewAll(getPriosNoLock());
            notifyClientsNoLock();
        }
    } catch (...) {
        _solver->distrust();
        throw;
    }
}

void PriorityMgr::performUpdate()
{
    Guard guard(_lock);
    if (_isRenamed.exchange(false, ZvPlatform::Order::RELAXED) || _nbStrays)
        _solver->distrust();
    if (!_nbStrays && _solver->solve(getPriosNoLock())) {
        _invalidRelation = nullptr;
        _invalidPriority = nullptr;
        _clients->review(_solver->getTouched());
        _isVerified = true;
        return;
    }
    resetNoLock();
    if (!findBoundsNoLock())
        walkAllWaysNoLock();
    takeValuesNoLock();
}

void PriorityMgr::solveInFull()
{
    Guard guard(_lock);
    resetNoLock();
    walkAllWaysNoLock();
    takeValuesNoLock();
}

void PriorityMgr::resetNoLock()
{
    for (Priority *priority : _priorities)
        priority->reset(_minimum, _maximum);
}

bool PriorityMgr::findBoundsNoLock()
{
    PriorityRingSolver lower(_minimum, _maximum);
    PriorityRingSolver upper(_minimum, _maximum);
    if (!lower.solve(PriorityTypes::LEFT, _priorities, nextSearch()) ||
        !upper.solve(PriorityTypes::RIGHT, _priorities, nextSearch()))
        return false;
    lower.apply();
    upper.apply();
    return true;
}

void PriorityMgr::walkAllWaysNoLock()
{
    for (Priority *priority : _independant) {
        priority->set(PriorityTypes::LEFT);
        priority->set(PriorityTypes::RIGHT);
    }
    for (Priority *priority : _priorities) {
        if (priority->isIndependantButNotSet())
            priority->set(PriorityTypes::LEFT);
    }
}

void PriorityMgr::takeValuesNoLock()
{
    for (Priority *priority : _priorities)
        priority->updatePriorityFromTransient();
}

void PriorityMgr::notifyClientsNoLock()
{
    _clients->tell();
}

PriorityMgr::Error PriorityMgr::check() const
{
    Guard guard(_lock);
    return checkNoLock();
}

PriorityMgr::Error PriorityMgr::checkNoLock() const
{
    _invalidRelation = nullptr;
    _invalidPriority = checkTransientNoLock();
    if (_invalidPriority)
        return TRANSIENT_INVALID;
    _invalidRelation = checkRelationsNoLock();
    return _invalidRelation ? RELATION_INVALID : ALL_VALID;
}

Priority const *PriorityMgr::checkTransientNoLock() const
{
    for (Priority const *priority : _priorities) {
        if (!priority->checkTransient())
            return priority;
    }
    return nullptr;
}

PriorityRelation const *PriorityMgr::checkRelationsNoLock() const
{
    for (PriorityRelation const *relation : _relations) {
        if (!relation->check())
            return relation;
    }
    return nullptr;
}

void PriorityMgr::updateError(Error error)
{
    Guard guard(_lock);
    switch (error) {
    case TRANSIENT_INVALID:
        _invalidPriority->throwTransientInvalid();
    case RELATION_INVALID:
        _invalidRelation->throwRelationInvalid();
    default:
        ZV_THROW(PriorityEx::ExError, errorToString(error));
    }
}

char const *PriorityMgr::errorToString(Error error)
{
    switch (error) {
    case TRANSIENT_INVALID:
        return "TRANSIENT_INVALID";
    case RELATION_INVALID:
        return "RELATION_INVALID";
    default:
        ZV_ABORT_PROGRAM();
    }
}

void PriorityMgr::enableTracing(bool isEnabled)
{
    _isTracing.store(isEnabled, ZvPlatform::Order::RELAXED);
}

bool PriorityMgr::isTracingEnabled() const
{
    return _isTracing.load(ZvPlatform::Order::RELAXED);
}

void PriorityMgr::renamed()
{
    _isRenamed.store(true, ZvPlatform::Order::RELAXED);
}

std::uint64_t PriorityMgr::nextSearch()
{
    Guard guard(_lock);
    return ++_nbSearches;
}

void PriorityMgr::dump(std::ostream &os) const
{
    std::ostringstream text; // the caller's stream is written without the lock
    {
        Guard guard(_lock);
        text << '\n' << _name.getChars() << ' ' << (_isDirty ? "NOT UP TO DATE" : "") << '\n';
        text << "Priorities:\n";
        for (Priority const *priority : _priorities) {
            text << '\t';
            priority->dump(text, false);
        }
        text << "Independant: \n";
        for (Priority const *priority : _independant) {
            text << '\t';
            priority->dump(text, false);
        }
        text << "Relations: \n";
        for (PriorityRelation const *relation : _relations) {
            text << '\t';
            relation->dump(text);
            text << '\n';
        }
    }
    os << text.str();
}

void PriorityMgr::dumpDot(std::ostream &os) const
{
    std::ostringstream text; // the caller's stream is written without the lock
    {
        Guard guard(_lock);
        text << "digraph {\n  rankdir=BT;\n  label=";
        writeDotString(text, _name + (_isDirty ? "\nNOT UP TO DATE" : ""));
        text << ";\n";
        for (Priority const *priority : _priorities) {
            text << "  p" << priority->_membership._order << " [label=";
            writeDotString(text, priority->getName() + "\n" +
                                     std::to_string(priority->getPriorityNoCheck()));
            text << (priority->isPriorityFixed() ? ", shape=box];\n" : "];\n");
        }
        for (PriorityRelation const *relation : _relations) {
            if (relation->_membership._isStray)
                continue;
            text << "  p" << relation->_lhs->_membership._order << " -> p"
                 << relation->_rhs->_membership._order
                 << (relation->isRelation(PriorityRelation::EQUAL)  ? " [label=\"==\", dir=none"
                     : relation->isRelation(PriorityRelation::LESS) ? " [label=\"<\""
                                                                    : " [label=\"<=\"")
                 << "];\n";
        }
        text << "}\n";
    }
    os << text.str();
}

std::ostream &operator<<(std::ostream &os, PriorityMgr const &mgr)
{
    mgr.dump(os);
    return os;
}

// ---- PriorityClients

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
