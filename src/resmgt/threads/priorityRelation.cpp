#include "resmgt/threads/priorityRelation.h"

#include "resmgt/locks/lkGuard.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/priorityEx.h"
#include "resmgt/threads/priorityMgr.h"
#include "zvbase/failures.h"
#include "zvbase/scope.private.h"

#include <iomanip>
#include <ostream>

namespace Zv {

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
