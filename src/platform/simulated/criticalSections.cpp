#include "platform/scheduler/sharedWords.h"
#include "platform/simulated/thread.h"

#include <new>

namespace ZvPlatform {

using namespace Simulated;

namespace {

Section &sectionOf(CRITICAL_SECTION *section)
{
    return *std::launder(reinterpret_cast<Section *>(section->storage));
}

void take(Section &section, Thread &thread)
{
    section.owner = &thread;
    section.recursion = 1;
    ++thread.sections;
    synchroniseAcquire(&section);
}

} // namespace

void InitializeCriticalSection(CRITICAL_SECTION *section)
{
    enter("InitializeCriticalSection");
    static constinit std::uint32_t serial = 0;
    new (section->storage) Section{nullptr, 0, ++serial, 0};
    forgetPublished(section);
}

void EnterCriticalSection(CRITICAL_SECTION *section)
{
    enter("EnterCriticalSection", section);
    Section &mine = sectionOf(section);
    Thread &me = currentThread();
    if (mine.owner == &me) {
        ++mine.recursion;
        return;
    }
    if (mine.owner) {
        me.kind = Thread::SECTION;
        me.section = &mine;
        ++mine.waiters;
        scheduler.wait(NEVER);
        --mine.waiters;
    }
    take(mine, me);
}

BOOL TryEnterCriticalSection(CRITICAL_SECTION *section)
{
    enter("TryEnterCriticalSection", section);
    Section &mine = sectionOf(section);
    Thread &me = currentThread();
    if (mine.owner && mine.owner != &me) {
        scheduler.note(FALSE);
        return FALSE;
    }
    if (mine.owner)
        ++mine.recursion;
    else
        take(mine, me);
    scheduler.note(TRUE);
    return TRUE;
}

void LeaveCriticalSection(CRITICAL_SECTION *section)
{
    enter("LeaveCriticalSection", section);
    Section &mine = sectionOf(section);
    if (mine.owner != &currentThread())
        find("not owner", "a critical section is left by a thread that is not in it");
    if (--mine.recursion)
        return;
    synchroniseRelease(&mine);
    --mine.owner->sections;
    mine.owner = nullptr;
}

void DeleteCriticalSection(CRITICAL_SECTION *section)
{
    enter("DeleteCriticalSection", section);
    Section &mine = sectionOf(section);
    if (mine.owner || mine.waiters)
        find("in use", "a critical section is deleted while it is %s",
             mine.owner ? "held" : "waited for");
}

} // namespace ZvPlatform
