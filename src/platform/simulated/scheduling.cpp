// Priority classes, priorities and processors of threads. They are stored but decide nothing,
// because a schedule can be any order.
#include "platform/common/threadName.h"
#include "platform/priorityTable.h"
#include "platform/simulated/thread.h"

#include <cstring>

namespace ZvPlatform {

using namespace Simulated;

namespace {

constexpr DWORD_PTR PROCESSORS = 0xF;

constinit DWORD processClass = NORMAL_PRIORITY_CLASS;

/// Calls `what` with the thread and the object behind a handle. The thread is null if it has ended.
/// The object is null if the handle is the constant for the calling thread. Returns false if the
/// handle is not valid.
template <class What>
bool withThread(HANDLE handle, What what)
{
    if (handle == CURRENT_THREAD) {
        what(&currentThread(), nullptr);
        return true;
    }
    Object *object = objectOf(handle, Object::THREAD);
    if (!object)
        return false;
    what(object->thread, object);
    return true;
}

} // namespace

BOOL SetThreadPriority(HANDLE handle, int priority)
{
    enter("SetThreadPriority", handle);
    BOOL result = TRUE;
    bool const good = withThread(handle, [&](Thread *thread, Object *object) {
        if (PriorityTable::findLevel(priority) < 0)
            result = fail(ERROR_INVALID_PARAMETER);
        else if (isRefused(PRIORITIES))
            result = fail(ERROR_PRIVILEGE_NOT_HELD);
        else
            (thread ? thread->level : object->level) = priority;
    });
    return good && result;
}

int GetThreadPriority(HANDLE handle)
{
    enter("GetThreadPriority", handle);
    int level = THREAD_PRIORITY_ERROR_RETURN;
    withThread(handle, [&](Thread *thread, Object *object) {
        level = thread ? thread->level : object->level;
    });
    scheduler.note(static_cast<std::uint64_t>(level));
    return level;
}

BOOL SetPriorityClass(HANDLE process, DWORD priorityClass)
{
    enter("SetPriorityClass");
    if (process != CURRENT_PROCESS)
        return fail(ERROR_INVALID_HANDLE);
    if (!PriorityTable::findRow(priorityClass))
        return fail(ERROR_INVALID_PARAMETER);
    if (priorityClass == processClass)
        return TRUE;
    bool const mayChange = priorityClass != REALTIME_PRIORITY_CLASS || scheduler.isPrivileged();
    if (!mayChange || isRefused(PRIORITIES))
        return fail(ERROR_PRIVILEGE_NOT_HELD);
    processClass = priorityClass;
    return TRUE;
}

DWORD GetPriorityClass(HANDLE process)
{
    enter("GetPriorityClass");
    if (process == CURRENT_PROCESS)
        return processClass;
    fail(ERROR_INVALID_HANDLE);
    return 0;
}

Scheduling schedulingOf(DWORD priorityClass, int level)
{
    PriorityTable::Row const &row = *PriorityTable::findRow(priorityClass);
    return {priorityClass == REALTIME_PRIORITY_CLASS,
            row.basePriorities[PriorityTable::findLevel(level)]};
}

DWORD readScheduling(HANDLE handle, Scheduling &scheduling)
{
    enter("readScheduling", handle);
    DWORD number = 0;
    withThread(handle, [&](Thread *thread, Object *) {
        if (!thread)
            return;
        number = thread->number;
        scheduling = schedulingOf(processClass, thread->level);
    });
    return number;
}

BOOL GetProcessAffinityMask(HANDLE process, DWORD_PTR *processMask, DWORD_PTR *systemMask)
{
    if (process != CURRENT_PROCESS)
        return fail(ERROR_INVALID_HANDLE);
    if (!processMask || !systemMask)
        return fail(ERROR_INVALID_PARAMETER);
    *processMask = *systemMask = PROCESSORS;
    return TRUE;
}

DWORD_PTR SetThreadAffinityMask(HANDLE handle, DWORD_PTR mask)
{
    enter("SetThreadAffinityMask", handle);
    DWORD_PTR before = 0;
    withThread(handle, [&](Thread *thread, Object *) {
        if (!thread || mask == 0 || mask & ~PROCESSORS) {
            fail(ERROR_INVALID_PARAMETER);
            return;
        }
        before = thread->mask ? thread->mask : PROCESSORS;
        thread->mask = mask;
    });
    return before;
}

long SetThreadDescription(HANDLE handle, wchar_t const *name)
{
    enter("SetThreadDescription", handle);
    return describeThread(name, [=](char const *text) {
        return withThread(handle, [=](Thread *thread, Object *) {
            if (thread)
                std::strcpy(thread->name, text);
        });
    });
}

} // namespace ZvPlatform
