#include "resmgt/threads/mtThreadMgrImp.private.h"

#include "resmgt/locks/lkGuard.h"
#include "resmgt/threads/mtEx.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "resmgt/threads/threadsStatics.private.h"
#include "zvbase/failures.h"

#include <sstream>
#include <utility>

namespace Zv {

namespace {

using Guard = LkGuard<LkRecLock const>;
using NumbersGuard = LkGuard<LkLock const>;

} // namespace

MtThreadMgrImp::MtThreadMgrImp(MtThreadFactory &factory)
    : _lock("MtThreadMgrImp"),
      _nbProcessors(NO_PROCESSORS),
      _isRealTime(false),
      _numbersLock("MtThreadMgrImp numbers"),
      _nbRegistrations(0),
      _nbSilent(0)
{
    _mainThread = createMainThread(factory);
}

MtThreadMgrImp::~MtThreadMgrImp() noexcept(false)
{
    ZV_ASSERT_IN_DESTRUCTOR(_threads.size() == 0);
    ZV_ASSERT_IN_DESTRUCTOR(_groups.size() == 0);
    _mainThread.reset();
}

MtThread *MtThreadMgrImp::findNoLock(MtThread *thread) const
{
    return _threads.contains(thread) ? thread : nullptr;
}

MtThreadGroup *MtThreadMgrImp::findNoLock(MtThreadGroup *group) const
{
    return _groups.contains(group) ? group : nullptr;
}

void MtThreadMgrImp::addGroup(MtThreadGroup *group)
{
    Guard const guard(_lock);
    ZV_ASSERT(findNoLock( group ) == 0);
    _groups.add(group);
}

void MtThreadMgrImp::removeGroup(MtThreadGroup *group)
{
    Guard const guard(_lock);
    ZV_ASSERT(findNoLock( group ) == group);
    _groups.remove(group);
}

void MtThreadMgrImp::addThread(MtThread *thread)
{
    Guard const guard(_lock);
    ZV_ASSERT(findNoLock( thread ) == 0);
    _threads.add(thread);
    try {
        NumbersGuard const numbers(_numbersLock);
        Number const none(LkThreadId(), ++_nbRegistrations);
        if (_numbers.insert_or_assign(thread, Report{none, !thread}).second && thread)
            ++_nbSilent;
    } catch (...) {
        _threads.remove(thread);
        throw;
    }
}

void MtThreadMgrImp::removeThread(MtThread *thread)
{
    Guard const guard(_lock);
    ZV_ASSERT(findNoLock( thread ) == thread);
    _threads.remove(thread);
    NumbersGuard const numbers(_numbersLock);
    auto const number = _numbers.find(thread);
    if (number != _numbers.end()) {
        _numbered.erase(number->second.number);
        _nbSilent -= !number->second.isMade;
        _numbers.erase(number);
    }
}

void MtThreadMgrImp::threadIdChanged(MtThread *thread, LkThreadId const &id)
{
    NumbersGuard const numbers(_numbersLock);
    auto const entry = _numbers.find(thread);
    if (entry == _numbers.end())
        return;
    auto &[number, isMade] = entry->second;
    _numbered.erase(number);
    number.first = id;
    if (!id.isNull())
        _numbered.emplace(number, thread);
    _nbSilent -= !std::exchange(isMade, true);
}

MtThread *MtThreadMgrImp::findByNumber(LkThreadId const &id, bool &isSure) const
{
    NumbersGuard const numbers(_numbersLock);
    auto const first = _numbered.lower_bound(Number(id, 0));
    bool const isFound = first != _numbered.end() && first->first.first == id;
    isSure = isFound || (!id.isNull() && _nbSilent == 0);
    return isFound ? first->second : nullptr;
}

MtThread *MtThreadMgrImp::findThread(LkThreadId const &id)
{
    bool isSure = false;
    if (MtThread * const thread = findByNumber(id, isSure); isSure)
        return thread;
    // The number is null, or there is a thread whose class does not report its number.
    Guard const guard(_lock);
    for (MtThread * const thread : _threads.entries())
        if (thread && thread->getThreadId() == id)
            return thread;
    return nullptr;
}

unsigned MtThreadMgrImp::getNbThreads() const
{
    Guard const guard(_lock);
    return static_cast<unsigned>(_threads.size());
}

void MtThreadMgrImp::setNbProcessors(unsigned nbProcessors)
{
    Guard const guard(_lock);
    if (nbProcessors != _nbProcessors) {
        _nbProcessors = nbProcessors;
        updateGroups(nbProcessors);
    }
}

unsigned MtThreadMgrImp::getNbProcessors() const
{
    Guard const guard(_lock);
    return _nbProcessors;
}

void MtThreadMgrImp::updateGroups(unsigned nbProcessors)
{
    Guard const guard(_lock);
    // A group may remove itself and other groups meanwhile.
    List<MtThreadGroup *> const groups = _groups.entries();
    for (MtThreadGroup * const group : groups)
        if (group && _groups.contains(group))
            group->processorsChanged(nbProcessors);
}

bool MtThreadMgrImp::isRealTime() const
{
    Guard const guard(_lock);
    return _isRealTime;
}

void MtThreadMgrImp::setRealTime(bool wanted)
{
    Guard const guard(_lock);
    EnvIntVar &noRealTime = ThreadsStatics::noRealTime;
    noRealTime.refresh();
    if (noRealTime.getValue() != 0 || wanted == _isRealTime)
        return;
    if (wanted) {
        try {
            enableRealTime();
        } catch (MtEx::ExRealTimeNotEnabled const &refusal) {
            if (_realTimeParam == REAL_TIME_REQUIRED)
                throw MtEx::ExRealTimeNotEnabled(refusal);
            wanted = false;
        }
    } else {
        disableRealTime();
    }
    _isRealTime = wanted;
}

void MtThreadMgrImp::enableRealTime() {}

void MtThreadMgrImp::disableRealTime() {}

void MtThreadMgrImp::forEachThread(std::function<void(MtThread const &)> const &visit) const
{
    Guard const guard(_lock);
    for (MtThread const * const thread : _threads.entries())
        if (thread)
            visit(*thread);
}

void MtThreadMgrImp::dump(std::ostream &os) const
{
    std::ostringstream text; // the caller's stream is written without the lock
    {
        Guard const guard(_lock);
        for (MtThread const * const thread : _threads.entries()) {
            text << '\n';
            if (thread)
                thread->dump(text);
        }
    }
    os << text.str();
}

} // namespace Zv
