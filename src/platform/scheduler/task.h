// Simulated threads as the scheduler knows them, and what the scheduler asks of the layer that it
// serves.
//
// Only the task that has the baton uses this state, so no lock guards it. Nothing here is allocated
// on the heap, so that a program gets the same addresses whether or not its steps are traced.
#pragma once

#include "platform/common/clock.h"
#include "platform/scheduler/bearer.h"
#include "platform/scheduler/simulation.h"

namespace ZvPlatform::Simulated {

inline constexpr unsigned FRAMES = 24;

/// A call stack as return addresses, the innermost first.
struct Place
{
    void *frames[FRAMES] = {};
    unsigned count = 0;
};

/// A simulated thread. The thread block of a layer is derived from it.
struct Task
{
    enum State : std::uint8_t
    {
        UNUSED,
        RUNNABLE,
        WAITING,
        ENDED
    };

    unsigned position = 0; ///< in the scheduler's list, from 1
    Bearer *bearer = nullptr;
    std::uint32_t serial = 0; ///< never reused
    State state = UNUSED;
    char name[16] = {};

    // The current wait, or the last one.
    bool granted = false;   ///< the wait has been satisfied
    bool mayStray = false;  ///< the wait may end without a cause
    bool isStray = false;   ///< the wait has ended without a cause
    bool isUnasked = false; ///< nothing but a grant or the deadline ends the wait
    Instant deadline = NEVER;
    bool hasStrayed = false; ///< the wait before this one has ended without a cause
    std::uint32_t since = 0; ///< the step at which the wait began
    std::uint32_t moves = 0; ///< advances of the clock during the wait, of the first task only

    WaitingFor *stated = nullptr;
    char const *doing = "";
    Place place;
    std::int64_t priority = 0;
    /// The thread is at the point behind a step that has released something.
    bool hasReleased = false;
};

/// The task that has the baton.
extern constinit Task *self;

/// Returns the calling task. The first thread that calls is adopted. Any other thread must have
/// been started by the scheduler, otherwise this is a finding, or aborts the process if no
/// simulation runs.
Task &currentTask();

// ---- What a layer defines for its tasks and objects ---------------------------------------------

/// Returns the task of the first thread of the process, which has called the layer for the first
/// time.
Task &adoptFirst();
/// Called when the calling thread has taken the place of the first thread, as `begin` does.
void tookPlace();
/// Called before a task goes on behind a point of the schedule.
void arrived(Task &);
/// Carries out a task that has begun, up to its end.
void execute(Task &);
/// Called when the scheduler has joined the thread of an ended task, which it forgets.
void joined(Task &);

/// Returns whether a waiting task can continue although it was not granted anything.
bool isSatisfied(Task const &);
/// Returns when the object becomes due for which a task waits, or NEVER.
Instant dueTime(Task const &);
/// Called when time has advanced.
void timeHasAdvanced();

/// Returns whether a task is about to end, so that it soon is no longer alive.
bool isEnding(Task const &);
/// Returns which lock a task holds, as "a mutex is held", or null.
char const *lockHeldBy(Task const &);
/// Returns the number of objects.
std::uint32_t countObjects();
/// Returns the serial number of the latest object.
std::uint32_t latestObject();
/// Returns the serial number of the object at an address, or 0 if there is none.
std::uint32_t serialOf(void const *);
/// Returns the name with which an object was created, or an empty text.
char const *ownNameOf(void const *);

/// Appends the objects whose serial number is above `since`, and, if the run is traced, the places
/// of their creation.
void listObjects(std::uint32_t since, char *&text, char *end);
/// Appends a description of an object, such as `mutex 3 "name", held by worker`, or an address.
void describe(void const *, char *&text, char *end);
/// Appends what a task waits for.
void describeWait(Task const &, char *&text, char *end);
/// Appends lines with what belongs to a task: what it waits for, and the objects that it holds.
void describeHeld(Task const &, char *&text, char *end);

// ---- What happens before what -------------------------------------------------------------------

// What happened before a release is visible after the next acquire of this place. The memory model
// and the thread sanitizer are told.
void synchroniseRelease(void const *);
void synchroniseAcquire(void const *);

// Only the thread sanitizer is told. They have no effect in other builds.
void tellRelease(void const *);
void tellAcquire(void const *);

} // namespace ZvPlatform::Simulated
