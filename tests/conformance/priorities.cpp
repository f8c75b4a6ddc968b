// Levels and classes. Their effect on a thread's scheduling cannot be seen here. The real-time
// class depends on privileges and is left out.
#include "conformance/conformance.h"

namespace Conformance {

namespace {

void showLevels()
{
    Owned const go(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    Runner t([&] {
        await(go);
        return DWORD{0};
    });
    scene("levels in range");
    NUMBER(GetThreadPriority(t.handle()));
    for (int level : {-15, -2, -1, 1, 2, 15, 0}) {
        scene("level " + std::to_string(level));
        TRUTH(SetThreadPriority(t.handle(), level));
        NUMBER(GetThreadPriority(t.handle()));
    }
    SetThreadPriority(t.handle(), THREAD_PRIORITY_HIGHEST);
    for (int level : {-1000, -16, -14, -3, 3, 14, 16, 1000, THREAD_PRIORITY_ERROR_RETURN}) {
        scene("level " + std::to_string(level));
        TRUTH(SetThreadPriority(t.handle(), level));
        NUMBER(GetThreadPriority(t.handle()));
    }
    SetEvent(go);
    t.join();
    scene("after the thread's end");
    NUMBER(GetThreadPriority(t.handle()));

    scene("one's own level");
    elsewhere([] {
        NUMBER(GetThreadPriority(GetCurrentThread()));
        TRUTH(SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_BELOW_NORMAL));
        NUMBER(GetThreadPriority(GetCurrentThread()));
        // A new thread has a level of its own.
        elsewhere([] { NUMBER(GetThreadPriority(GetCurrentThread())); });
    });

    scene("what is no thread");
    Owned const e(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    TRUTH(SetThreadPriority(nullptr, 0));
    TRUTH(SetThreadPriority(badHandle(), 0));
    TRUTH(SetThreadPriority(e, 0));
    NUMBER(GetThreadPriority(nullptr));
    NUMBER(GetThreadPriority(badHandle()));
    NUMBER(GetThreadPriority(e));
}

void showClasses()
{
    HANDLE const process = GetCurrentProcess();
    scene("classes in range");
    NUMBER(GetPriorityClass(process));
    for (DWORD value : {IDLE_PRIORITY_CLASS, HIGH_PRIORITY_CLASS, NORMAL_PRIORITY_CLASS}) {
        scene("class " + std::to_string(value));
        TRUTH(SetPriorityClass(process, value));
        NUMBER(GetPriorityClass(process));
        // A thread's level is relative to the class.
        NUMBER(GetThreadPriority(GetCurrentThread()));
    }
    for (DWORD value : {DWORD{0}, DWORD{1}, DWORD{33}, DWORD{512}}) {
        scene("class " + std::to_string(value));
        TRUTH(SetPriorityClass(process, value));
        NUMBER(GetPriorityClass(process));
    }
    scene("what is no process");
    Owned const e(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    TRUTH(SetPriorityClass(nullptr, NORMAL_PRIORITY_CLASS));
    TRUTH(SetPriorityClass(e, NORMAL_PRIORITY_CLASS));
    NUMBER(GetPriorityClass(nullptr));
    NUMBER(GetPriorityClass(e));
}

} // namespace

void showPriorities()
{
    table("priority");
    showLevels();
    showClasses();
}

} // namespace Conformance
